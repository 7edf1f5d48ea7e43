// A caller of the service as any other: over the COM runtime, with a store of its own for each test.
//
//   class PolicyTest : public ServiceClient {};
//   ASSERT_EQ(Import("class Policy { [key] string ID; };"), S_OK);
//   auto policy = Spawn(L"Policy");
//   EXPECT_EQ(PutValue(policy, L"ID", L"a"), S_OK);
//   EXPECT_EQ(Show(policy, L"ID"), "BSTR a");
#pragma once

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <atlbase.h>
#include <comdef.h>
#include <comutil.h>
#include <errorinfo.h>
#include <gtest/gtest.h>
#include <objbase.h>
#include <wbemidl.h>

#include "tests/service/temporary_directory.h"

using ObjectPointer = CComPtr<IWbemClassObject>;
using ServicesPointer = CComPtr<IWbemServices>;

// A status in the form in which documents name it, so that a failing test can be read.
inline std::string Code(HRESULT result) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(result));
    return text;
}
#define EXPECT_CODE(expected, actual) EXPECT_EQ(Code(expected), Code(actual))
#define ASSERT_CODE(expected, actual) ASSERT_EQ(Code(expected), Code(actual))

inline std::string Narrow(std::wstring_view text) {
    std::string narrow;
    for (const wchar_t unit : text) {
        char shown[16];
        std::snprintf(shown, sizeof shown, unit >= 0x20 && unit < 0x7F ? "%c" : "<%X>",
                      static_cast<unsigned>(unit));
        narrow += shown;
    }
    return narrow;
}

inline std::string Narrow(BSTR text) {
    return text ? Narrow(std::wstring_view(text, SysStringLen(text))) : "(null)";
}

template <typename Real, typename Bits>
std::string ShowReal(Real value) {
    char text[64];
    std::snprintf(text, sizeof text, "%g/%llX", static_cast<double>(value),
                  static_cast<unsigned long long>(std::bit_cast<Bits>(value)));
    return text;
}

// Type and value to the last bit: "I4 5", "BSTR a", "NULL", "BSTR[] a|(null)".
inline std::string Show(const VARIANT& value) {
    if (value.vt & VT_ARRAY) {
        const VARTYPE type = value.vt & VT_TYPEMASK;
        LONG lower = 0, upper = -1;
        SafeArrayGetLBound(value.parray, 1, &lower);
        SafeArrayGetUBound(value.parray, 1, &upper);
        VARIANT kind{};
        kind.vt = type;
        std::string text = Show(kind);
        text = text.substr(0, text.find(' ')) + "[]";
        for (LONG i = lower; i <= upper; ++i) {
            CComVariant element;
            SafeArrayGetElement(value.parray, &i, &element.llVal);
            element.vt = type;
            const std::string shown = Show(element);
            text += (i == lower ? " " : "|") + shown.substr(shown.find(' ') + 1);
        }
        return text;
    }
    if (value.vt == VT_EMPTY) return "EMPTY";
    if (value.vt == VT_NULL) return "NULL";
    if (value.vt == VT_I2) return "I2 " + std::to_string(value.iVal);
    if (value.vt == VT_I4) return "I4 " + std::to_string(value.lVal);
    if (value.vt == VT_UI1) return "UI1 " + std::to_string(value.bVal);
    if (value.vt == VT_BOOL) return "BOOL " + std::to_string(value.boolVal);
    if (value.vt == VT_R4) return "R4 " + ShowReal<float, uint32_t>(value.fltVal);
    if (value.vt == VT_R8) return "R8 " + ShowReal<double, uint64_t>(value.dblVal);
    if (value.vt == VT_BSTR) return "BSTR " + Narrow(value.bstrVal);
    if (value.vt == VT_UNKNOWN) return std::string("UNKNOWN ") + (value.punkVal ? "object" : "(null)");
    return "type " + std::to_string(value.vt);
}

inline _variant_t Text(std::wstring_view text) {
    _variant_t value;
    value.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    value.vt = VT_BSTR;
    return value;
}

inline _variant_t Null() {
    _variant_t value;
    value.vt = VT_NULL;
    return value;
}

// An array of the elements' type, or of variants.
inline _variant_t ArrayOf(VARTYPE type, const std::vector<_variant_t>& elements) {
    _variant_t value;
    value.parray = SafeArrayCreateVector(type, 0, static_cast<ULONG>(elements.size()));
    value.vt = static_cast<VARTYPE>(VT_ARRAY | type);
    for (LONG i = 0; i < static_cast<LONG>(elements.size()); ++i) {
        _variant_t element = elements[static_cast<size_t>(i)];
        if (type == VT_VARIANT) {
            EXPECT_EQ(SafeArrayPutElement(value.parray, &i, &element), S_OK);
        } else if (type == VT_BSTR || type == VT_UNKNOWN) {
            EXPECT_EQ(SafeArrayPutElement(value.parray, &i, element.vt == VT_NULL ? nullptr : element.byref),
                      S_OK);
        } else {
            EXPECT_EQ(SafeArrayPutElement(value.parray, &i, &element.llVal), S_OK);
        }
    }
    return value;
}

// The sentence of the thread's error object, which is taken away.
inline std::string TakeReason() {
    CComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, &info) != S_OK) return {};
    CComBSTR text;
    info->GetDescription(&text);
    return Narrow(text.m_str);
}

class ServiceClient : public testing::Test {
 protected:
    static constexpr const wchar_t* kNamespace = L"\\\\.\\root\\Test";

    ServiceClient() {
        setenv("MGMT_STORE", store.c_str(), 1);
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    }
    ~ServiceClient() override {
        services.Release();
        CoUninitialize();
        unsetenv("MGMT_STORE");
    }

    static HRESULT Compile(IMofCompiler& compiler, std::wstring space, std::string text,
                           WBEM_COMPILE_STATUS_INFO* info = nullptr, LONG options = 0, LONG class_flags = 0,
                           LONG instance_flags = 0) {
        return compiler.CompileBuffer(static_cast<long>(text.size()), reinterpret_cast<BYTE*>(text.data()),
                                      space.data(), nullptr, nullptr, nullptr, options, class_flags,
                                      instance_flags, info);
    }

    template <typename... Options>
    static HRESULT ImportInto(const wchar_t* space, const std::string& text, Options... options) {
        return Compile(*Compiler(), space, text, options...);
    }

    // Into the test's namespace, which is connected then.
    HRESULT Import(const std::string& text, WBEM_COMPILE_STATUS_INFO* info = nullptr) {
        const HRESULT result = ImportInto(kNamespace, text, info);
        if (FAILED(result) || services) return result;
        EXPECT_CODE(S_OK, Connect(kNamespace, services));
        return result;
    }

    static CComPtr<IMofCompiler> Compiler() {
        CComPtr<IMofCompiler> compiler;
        EXPECT_CODE(S_OK, compiler.CoCreateInstance(CLSID_MofCompiler));
        return compiler;
    }

    static HRESULT Connect(const wchar_t* path, ServicesPointer& connected) {
        connected.Release();
        CComPtr<IWbemLocator> locator;
        const HRESULT made = locator.CoCreateInstance(CLSID_WbemLocator);
        if (FAILED(made)) return made;
        return locator->ConnectServer(CComBSTR(path), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                      &connected);
    }

    HRESULT GetObject(std::wstring_view path, ObjectPointer& object) const {
        object.Release();
        return services->GetObject(CComBSTR(static_cast<int>(path.size()), path.data()), 0, nullptr, &object,
                                   nullptr);
    }

    // An object that must be there.
    ObjectPointer Get(std::wstring_view path) const {
        ObjectPointer object;
        EXPECT_CODE(S_OK, GetObject(path, object)) << Narrow(path);
        return object;
    }

    ObjectPointer Spawn(std::wstring_view class_name) const {
        const ObjectPointer definition = Get(class_name);
        ObjectPointer instance;
        if (!definition) return instance;
        EXPECT_CODE(S_OK, definition->SpawnInstance(0, &instance));
        return instance;
    }

    HRESULT CodeOf(std::wstring_view path) const {
        ObjectPointer object;
        return GetObject(path, object);
    }

    // Puts an instance whose class has a key ID and a number Days.
    void PutPolicy(const std::wstring& id, int days, std::wstring_view class_name = L"Policy") const {
        const ObjectPointer instance = Spawn(class_name);
        EXPECT_CODE(S_OK, PutValue(instance, L"ID", Text(id)));
        EXPECT_CODE(S_OK, PutValue(instance, L"Days", days));
        EXPECT_CODE(S_OK, PutInstance(instance));
    }

    HRESULT PutInstance(IWbemClassObject* object, long flags = 0) const {
        return services->PutInstance(object, flags, nullptr, nullptr);
    }

    HRESULT DeleteInstance(std::wstring_view path) const {
        return services->DeleteInstance(CComBSTR(static_cast<int>(path.size()), path.data()), 0, nullptr,
                                        nullptr);
    }

    HRESULT DeleteClass(const wchar_t* name) const {
        return services->DeleteClass(CComBSTR(name), 0, nullptr, nullptr);
    }

    static HRESULT PutValue(IWbemClassObject* object, const wchar_t* name, _variant_t value,
                            CIMTYPE type = 0) {
        return object->Put(name, 0, &value, type);
    }

    static _variant_t GetValue(IWbemClassObject* object, const wchar_t* name) {
        _variant_t value;
        EXPECT_CODE(S_OK, object->Get(name, 0, &value, nullptr, nullptr)) << Narrow(std::wstring_view(name));
        return value;
    }

    static std::string Show(IWbemClassObject* object, const wchar_t* name) {
        return ::Show(GetValue(object, name));
    }

    TemporaryDirectory directory;
    const std::string store = directory.path() + "/store";
    ServicesPointer services;
};
