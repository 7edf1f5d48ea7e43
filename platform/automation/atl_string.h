// CComBSTR, a BSTR that owns its text. Include <atlbase.h>, which describes it.
#pragma once

#include <cstddef>
#include <string_view>
#include <utility>

#include <atlexcept.h>
#include <oleauto.h>
#include <platform_api.h>

// Every copy is a string of its own.
class CComBSTR {
 public:
    CComBSTR() noexcept = default;
    // `length` units that are left unset, or copied from `text`, which has so many.
    explicit CComBSTR(int length) : CComBSTR(length, nullptr) {}
    CComBSTR(int length, LPCOLESTR text) {
        if (length < 0) AtlThrow(E_INVALIDARG);
        if (length == 0) return;
        m_str = ::SysAllocStringLen(text, static_cast<UINT>(length));
        if (m_str == nullptr) AtlThrow(E_OUTOFMEMORY);
    }
    // Copies of the text up to its null unit; null stays null. Narrow text is in the local encoding (CP_ACP,
    // see winnls.h), and throws the status of ERROR_NO_UNICODE_TRANSLATION when it is not.
    CComBSTR(LPCOLESTR text) : m_str(::SysAllocString(text)) {
        if (m_str == nullptr && text != nullptr) AtlThrow(E_OUTOFMEMORY);
    }
    CComBSTR(LPCSTR text) : m_str(FromNarrow(text)) {}
    CComBSTR(const CComBSTR& other) : m_str(other.CopyOrThrow()) {}
    CComBSTR(CComBSTR&& other) noexcept : m_str(other.Detach()) {}
    ~CComBSTR() { ::SysFreeString(m_str); }

    CComBSTR& operator=(const CComBSTR& other) {
        if (m_str != other.m_str) Attach(other.CopyOrThrow());
        return *this;
    }
    CComBSTR& operator=(CComBSTR&& other) noexcept {
        const BSTR taken = other.Detach();
        Attach(taken);
        return *this;
    }
    CComBSTR& operator=(LPCOLESTR text) { return *this = CComBSTR(text); }
    CComBSTR& operator=(LPCSTR text) { return *this = CComBSTR(text); }

    // The text, or null; valid until this object changes.
    operator BSTR() const noexcept { return m_str; }
    bool operator!() const noexcept { return m_str == nullptr; }

    // The place for a new string; the object must hold none, since it would be lost.
    BSTR* operator&() noexcept { return &m_str; }

    unsigned int Length() const noexcept { return ::SysStringLen(m_str); }
    unsigned int ByteLength() const noexcept { return ::SysStringByteLen(m_str); }

    // A new string over the whole length, which the caller frees; null for null, or when memory is exhausted.
    [[nodiscard]] BSTR Copy() const noexcept {
        if (m_str == nullptr) return nullptr;
        return ::SysAllocStringByteLen(reinterpret_cast<LPCSTR>(m_str), ByteLength());
    }
    HRESULT CopyTo(BSTR* target) const noexcept {
        if (target == nullptr) return E_POINTER;
        *target = Copy();
        return *target == nullptr && m_str != nullptr ? E_OUTOFMEMORY : S_OK;
    }

    // Attach takes over the caller's string, Detach hands it to the caller.
    void Attach(BSTR text) noexcept {
        if (m_str == text) return;
        ::SysFreeString(m_str);
        m_str = text;
    }
    [[nodiscard]] BSTR Detach() noexcept { return std::exchange(m_str, nullptr); }
    void Empty() noexcept { Attach(nullptr); }

    // E_OUTOFMEMORY leaves the text as it was. Append of null does nothing.
    HRESULT Append(LPCOLESTR text) noexcept {
        return text == nullptr ? S_OK : Append(text, std::wstring_view(text).size());
    }
    MGMT_PLATFORM_API HRESULT Append(LPCOLESTR text, std::size_t length) noexcept;
    CComBSTR& operator+=(LPCOLESTR text) {
        const HRESULT status = Append(text);
        if (FAILED(status)) AtlThrow(status);
        return *this;
    }

    // Null and the empty text are equal. A C string counts up to its null unit.
    bool operator==(const CComBSTR& other) const noexcept { return View() == other.View(); }
    bool operator==(LPCOLESTR text) const noexcept {
        return View() == (text != nullptr ? std::wstring_view(text) : std::wstring_view());
    }
    bool operator<(const CComBSTR& other) const noexcept { return View() < other.View(); }

    BSTR m_str = nullptr;

 private:
    std::wstring_view View() const noexcept { return {m_str, Length()}; }

    BSTR CopyOrThrow() const {
        const BSTR copy = Copy();
        if (copy == nullptr && m_str != nullptr) AtlThrow(E_OUTOFMEMORY);
        return copy;
    }
    MGMT_PLATFORM_API static BSTR FromNarrow(LPCSTR text);
};
