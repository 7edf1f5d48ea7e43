// The text that names an instance by its key: Class.INSTANCE_ID="id". Internal to the library.
//
//   services->DeleteInstance(InstancePath(category, id).ToBstr(), 0, nullptr, nullptr);
//
// The path has at most 255 units; a longer one is cut there. Nothing in the id is escaped. A category or id
// ends at its first zero. A plain value for one thread.
#pragma once

#include <string>
#include <string_view>

#include <comutil.h>

class InstancePath {
 public:
    InstancePath(const std::wstring& categoryId, const std::wstring& instanceId) noexcept;

    std::wstring_view View() const noexcept { return {m_Units, m_Length}; }

    // Throws _com_error E_OUTOFMEMORY.
    _bstr_t ToBstr() const { return m_Units; }

 private:
    void Append(std::wstring_view text) noexcept;

    static constexpr std::size_t CAPACITY = 256;

    wchar_t m_Units[CAPACITY];
    std::size_t m_Length = 0;
};
