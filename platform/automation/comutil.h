// _bstr_t and _variant_t own a BSTR and a VARIANT; _com_issue_error is how they fail.
//
//   _bstr_t name(L"name");
//   _variant_t value(30L);
//   service->Put(name, &value);
//
// Copies of a _bstr_t share one counted string; copies of a _variant_t are deep. Different objects may be
// used on different threads, also those that share a string; one object belongs to one thread at a time.
//
// Both throw _com_error (comdef.h) and nothing else: E_OUTOFMEMORY when memory is exhausted, or the status of
// the call that failed. Moves and destructors do not throw.
#pragma once

#include <compare>
#include <string_view>
#include <utility>

#include <oleauto.h>
#include <platform_api.h>

#include "platform/automation/bstr_layout.h"

struct IErrorInfo;
class _variant_t;

// Throws _com_error with the status.
[[noreturn]] MGMT_PLATFORM_API void _com_issue_error(HRESULT status);

// The same with the reason; takes over the reference to `reason`, which may be null.
[[noreturn]] MGMT_PLATFORM_API void _com_raise_error(HRESULT status, IErrorInfo* reason = nullptr);

namespace _com_util {

// Throws _com_error for a status that is a failure.
inline void CheckError(HRESULT status) {
    if (FAILED(status)) _com_issue_error(status);
}

// The wide form of text in the local encoding (CP_ACP, see winnls.h); null for null. The caller frees it.
// Throws _com_error: HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION) for text that is not valid,
// E_OUTOFMEMORY.
MGMT_PLATFORM_API BSTR ConvertStringToBSTR(const char* narrow);

}  // namespace _com_util

// A counted wide string, or null. Null is not the same as the empty string, and sorts before it.
class _bstr_t {
 public:
    _bstr_t() noexcept = default;
    _bstr_t(const _bstr_t& other) noexcept : m_text(other.m_text) { Share(); }
    _bstr_t(_bstr_t&& other) noexcept : m_text(std::exchange(other.m_text, nullptr)) {}
    // A copy of the text up to its null unit; null stays null.
    _bstr_t(const wchar_t* text) : m_text(::SysAllocString(text)) { CheckAllocated(text); }
    _bstr_t(const char* text) : m_text(_com_util::ConvertStringToBSTR(text)) {}
    // The variant's value as text; VT_NULL throws DISP_E_TYPEMISMATCH.
    _bstr_t(const _variant_t& value);
    // Copies the whole string, or takes it over.
    _bstr_t(BSTR text, bool copy) : m_text(copy ? CopyOf(text) : text) {}
    ~_bstr_t() { Free(); }

    _bstr_t& operator=(const _bstr_t& other) noexcept {
        _bstr_t copy(other);
        Swap(copy);
        return *this;
    }
    _bstr_t& operator=(_bstr_t&& other) noexcept {
        _bstr_t taken(std::move(other));
        Swap(taken);
        return *this;
    }
    _bstr_t& operator=(const wchar_t* text) { return *this = _bstr_t(text); }
    _bstr_t& operator=(const char* text) { return *this = _bstr_t(text); }
    _bstr_t& operator=(const _variant_t& value) { return *this = _bstr_t(value); }

    _bstr_t& operator+=(const _bstr_t& other) { return *this = Joined(View(), other.View()); }
    _bstr_t operator+(const _bstr_t& other) const { return Joined(View(), other.View()); }
    _bstr_t operator+(const wchar_t* text) const { return Joined(View(), ViewOf(text)); }
    _bstr_t operator+(const char* text) const { return *this + _bstr_t(text); }
    friend _bstr_t operator+(const wchar_t* text, const _bstr_t& other) {
        return Joined(ViewOf(text), other.View());
    }
    friend _bstr_t operator+(const char* text, const _bstr_t& other) { return _bstr_t(text) + other; }

    // The text, or null; valid until this object and all that share the string have let go of it. What is
    // written through the second shows in them all.
    operator const wchar_t*() const noexcept { return m_text; }
    operator wchar_t*() const noexcept { return m_text; }
    explicit operator bool() const noexcept { return m_text != nullptr; }
    bool operator!() const noexcept { return m_text == nullptr; }

    // Compare by the units' values over the whole length. A C string counts up to its null unit.
    bool operator==(const _bstr_t& other) const noexcept { return std::is_eq(*this <=> other); }
    bool operator==(const wchar_t* text) const noexcept { return std::is_eq(*this <=> text); }
    std::strong_ordering operator<=>(const _bstr_t& other) const noexcept {
        return Compare(m_text, View(), other.m_text, other.View());
    }
    std::strong_ordering operator<=>(const wchar_t* text) const noexcept {
        return Compare(m_text, View(), text, ViewOf(text));
    }

    // In units, without the closing null; 0 for null.
    unsigned int length() const noexcept { return ::SysStringLen(m_text); }

    // With `copyText` a new string that the caller frees, else the string itself, still owned here.
    BSTR copy(bool copyText = true) const { return copyText ? CopyOf(m_text) : m_text; }

    // Takes over `text`.
    void Attach(BSTR text) noexcept {
        Free();
        m_text = text;
    }
    // Hands the string over to the caller and leaves null here; other objects keep theirs, which costs a copy
    // when the string is shared.
    BSTR Detach() {
        Unshare();
        return std::exchange(m_text, nullptr);
    }
    // Stores a copy of the whole string.
    void Assign(BSTR text) { *this = _bstr_t(text, true); }

    // Lets go of the string and hands out the place for a new one, which is then owned here.
    BSTR* GetAddress() noexcept {
        Free();
        return &m_text;
    }
    // The string to be read, or replaced in place by the Sys*String functions.
    const BSTR& GetBSTR() const noexcept { return m_text; }
    BSTR& GetBSTR() {
        Unshare();
        return m_text;
    }

 private:
    static std::wstring_view ViewOf(const wchar_t* text) noexcept {
        return text != nullptr ? std::wstring_view(text) : std::wstring_view();
    }
    std::wstring_view View() const noexcept { return {m_text, ::SysStringLen(m_text)}; }

    static std::strong_ordering Compare(const wchar_t* left, std::wstring_view leftText, const wchar_t* right,
                                        std::wstring_view rightText) noexcept {
        if (left == nullptr || right == nullptr) return (left != nullptr) <=> (right != nullptr);
        return leftText.compare(rightText) <=> 0;
    }

    static BSTR CopyOf(BSTR text) {
        if (text == nullptr) return nullptr;
        const BSTR copy =
            ::SysAllocStringByteLen(reinterpret_cast<const char*>(text), ::SysStringByteLen(text));
        if (copy == nullptr) _com_issue_error(E_OUTOFMEMORY);
        return copy;
    }

    // A null view with a null view stays null.
    MGMT_PLATFORM_API static _bstr_t Joined(std::wstring_view left, std::wstring_view right);

    void CheckAllocated(const wchar_t* source) const {
        if (m_text == nullptr && source != nullptr) _com_issue_error(E_OUTOFMEMORY);
    }
    void Swap(_bstr_t& other) noexcept { std::swap(m_text, other.m_text); }
    void Share() const noexcept {
        if (m_text != nullptr) HeaderOf(m_text)->shares.fetch_add(1, std::memory_order_relaxed);
    }
    void Unshare() {
        if (m_text == nullptr || HeaderOf(m_text)->shares.load(std::memory_order_acquire) == 1) return;
        *this = _bstr_t(m_text, true);
    }
    void Free() noexcept {
        const BSTR text = std::exchange(m_text, nullptr);
        if (text == nullptr) return;
        // The only holder need not count down: nobody can be sharing the string at the same time.
        std::atomic<std::uint32_t>& shares = HeaderOf(text)->shares;
        if (shares.load(std::memory_order_acquire) == 1 ||
            shares.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            ::SysFreeString(text);
        }
    }

    BSTR m_text = nullptr;
};

#include "platform/automation/comutil_variant.h"
