#include "utility/management/util_MgmtInstancePath.h"

#include <algorithm>
#include <cwchar>

// By hand rather than with swprintf: its %ls is slow, and what it does depends on the process's locale.
InstancePath::InstancePath(const std::wstring& categoryId, const std::wstring& instanceId) noexcept {
    Append(categoryId.c_str());
    Append(L".INSTANCE_ID=\"");
    Append(instanceId.c_str());
    Append(L"\"");
    m_Units[m_Length] = L'\0';
}

void InstancePath::Append(std::wstring_view text) noexcept {
    const std::size_t room = CAPACITY - 1 - m_Length;
    m_Length += text.copy(m_Units + m_Length, room);
}
