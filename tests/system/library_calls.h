// What the tests of the whole system and their worker do through the library.
//
//   ComThread com;                                  // on every thread
//   Import("class Pair { [key] string INSTANCE_ID; };");
//   CMgmtObject pair(L"Pair", L"a", nullptr);
//   if (pair.Get()) NumberOf(pair, L"N");
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <atlbase.h>
#include <comutil.h>
#include <wbemidl.h>

#include "utility/management/mgmt.h"

class ComThread {
 public:
    ComThread() { CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
    ~ComThread() { CoUninitialize(); }
    ComThread(const ComThread&) = delete;
    ComThread& operator=(const ComThread&) = delete;
};

inline std::wstring Widen(std::string_view text) {
    return {text.begin(), text.end()};
}

// Not std::to_wstring: it takes a lock of the C library's that a child forked by another thread finds taken
// for ever.
template <typename Integer>
std::wstring Digits(Integer number) {
    return Widen(std::to_string(number));
}

// The number of a property, -1 for null and for what is none.
inline long NumberOf(CMgmtObject& object, const wchar_t* name) {
    const _variant_t* value = object.GetPropertyValue(name);
    return value && value->vt == VT_I4 ? value->lVal : -1;
}

// ASCII text of a property; none for null and for what is no text.
inline std::optional<std::string> TextOf(CMgmtObject& object, const wchar_t* name) {
    const _variant_t* value = object.GetPropertyValue(name);
    if (!value || value->vt != VT_BSTR) return std::nullopt;
    const std::wstring_view wide(value->bstrVal, SysStringLen(value->bstrVal));
    std::string text;
    for (const wchar_t unit : wide)
        text.push_back(static_cast<char>(unit));
    return text;
}

// Imports a schema text into the library's namespace.
inline bool Import(std::string text) {
    CComPtr<IMofCompiler> compiler;
    if (FAILED(compiler.CoCreateInstance(CLSID_MofCompiler))) return false;
    wchar_t space[] = L"\\\\.\\root\\Vantrel\\Halvenor";
    return compiler->CompileBuffer(static_cast<long>(text.size()), reinterpret_cast<BYTE*>(text.data()),
                                   space, nullptr, nullptr, nullptr, 0, 0, 0, nullptr) == S_OK;
}

// A text that tells at every place which number it was made of.
inline std::wstring TextFor(long number) {
    std::wstring text;
    while (text.size() < 3'000)
        text += Digits(number) + L",";
    return text;
}
