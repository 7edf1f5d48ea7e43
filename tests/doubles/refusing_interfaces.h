// The service's interfaces with every request refused (WBEM_E_NOT_SUPPORTED): a double overrides those that
// its test is about.
#pragma once

#include <wbemidl.h>

#include "tests/doubles/com_object.h"

namespace doubles {

inline constexpr HRESULT REFUSED = WBEM_E_NOT_SUPPORTED;

template <typename... Others>
class RefusingServices : public ComObject<IWbemServices, Others...> {
 public:
    using ComObject<IWbemServices, Others...>::ComObject;

    HRESULT OpenNamespace(const BSTR, long, IWbemContext*, IWbemServices**, IWbemCallResult**) override {
        return REFUSED;
    }
    HRESULT CancelAsyncCall(IWbemObjectSink*) override { return REFUSED; }
    HRESULT QueryObjectSink(long, IWbemObjectSink**) override { return REFUSED; }
    HRESULT GetObject(const BSTR, long, IWbemContext*, IWbemClassObject**, IWbemCallResult**) override {
        return REFUSED;
    }
    HRESULT GetObjectAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) override { return REFUSED; }
    HRESULT PutClass(IWbemClassObject*, long, IWbemContext*, IWbemCallResult**) override { return REFUSED; }
    HRESULT PutClassAsync(IWbemClassObject*, long, IWbemContext*, IWbemObjectSink*) override {
        return REFUSED;
    }
    HRESULT DeleteClass(const BSTR, long, IWbemContext*, IWbemCallResult**) override { return REFUSED; }
    HRESULT DeleteClassAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) override { return REFUSED; }
    HRESULT CreateClassEnum(const BSTR, long, IWbemContext*, IEnumWbemClassObject**) override {
        return REFUSED;
    }
    HRESULT CreateClassEnumAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) override {
        return REFUSED;
    }
    HRESULT PutInstance(IWbemClassObject*, long, IWbemContext*, IWbemCallResult**) override {
        return REFUSED;
    }
    HRESULT PutInstanceAsync(IWbemClassObject*, long, IWbemContext*, IWbemObjectSink*) override {
        return REFUSED;
    }
    HRESULT DeleteInstance(const BSTR, long, IWbemContext*, IWbemCallResult**) override { return REFUSED; }
    HRESULT DeleteInstanceAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) override {
        return REFUSED;
    }
    HRESULT CreateInstanceEnum(const BSTR, long, IWbemContext*, IEnumWbemClassObject**) override {
        return REFUSED;
    }
    HRESULT CreateInstanceEnumAsync(const BSTR, long, IWbemContext*, IWbemObjectSink*) override {
        return REFUSED;
    }
    HRESULT ExecQuery(const BSTR, const BSTR, long, IWbemContext*, IEnumWbemClassObject**) override {
        return REFUSED;
    }
    HRESULT ExecQueryAsync(const BSTR, const BSTR, long, IWbemContext*, IWbemObjectSink*) override {
        return REFUSED;
    }
    HRESULT ExecNotificationQuery(const BSTR, const BSTR, long, IWbemContext*,
                                  IEnumWbemClassObject**) override {
        return REFUSED;
    }
    HRESULT ExecNotificationQueryAsync(const BSTR, const BSTR, long, IWbemContext*,
                                       IWbemObjectSink*) override {
        return REFUSED;
    }
    HRESULT ExecMethod(const BSTR, const BSTR, long, IWbemContext*, IWbemClassObject*, IWbemClassObject**,
                       IWbemCallResult**) override {
        return REFUSED;
    }
    HRESULT ExecMethodAsync(const BSTR, const BSTR, long, IWbemContext*, IWbemClassObject*,
                            IWbemObjectSink*) override {
        return REFUSED;
    }
};

class RefusingClassObject : public ComObject<IWbemClassObject> {
 public:
    using ComObject<IWbemClassObject>::ComObject;

    HRESULT GetQualifierSet(IWbemQualifierSet**) override { return REFUSED; }
    HRESULT Get(LPCWSTR, long, VARIANT*, CIMTYPE*, long*) override { return REFUSED; }
    HRESULT Put(LPCWSTR, long, VARIANT*, CIMTYPE) override { return REFUSED; }
    HRESULT Delete(LPCWSTR) override { return REFUSED; }
    HRESULT GetNames(LPCWSTR, long, VARIANT*, SAFEARRAY**) override { return REFUSED; }
    HRESULT BeginEnumeration(long) override { return REFUSED; }
    HRESULT Next(long, BSTR*, VARIANT*, CIMTYPE*, long*) override { return REFUSED; }
    HRESULT EndEnumeration() override { return REFUSED; }
    HRESULT GetPropertyQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return REFUSED; }
    HRESULT Clone(IWbemClassObject**) override { return REFUSED; }
    HRESULT GetObjectText(long, BSTR*) override { return REFUSED; }
    HRESULT SpawnDerivedClass(long, IWbemClassObject**) override { return REFUSED; }
    HRESULT SpawnInstance(long, IWbemClassObject**) override { return REFUSED; }
    HRESULT CompareTo(long, IWbemClassObject*) override { return REFUSED; }
    HRESULT GetPropertyOrigin(LPCWSTR, BSTR*) override { return REFUSED; }
    HRESULT InheritsFrom(LPCWSTR) override { return REFUSED; }
    HRESULT GetMethod(LPCWSTR, long, IWbemClassObject**, IWbemClassObject**) override { return REFUSED; }
    HRESULT PutMethod(LPCWSTR, long, IWbemClassObject*, IWbemClassObject*) override { return REFUSED; }
    HRESULT DeleteMethod(LPCWSTR) override { return REFUSED; }
    HRESULT BeginMethodEnumeration(long) override { return REFUSED; }
    HRESULT NextMethod(long, BSTR*, IWbemClassObject**, IWbemClassObject**) override { return REFUSED; }
    HRESULT EndMethodEnumeration() override { return REFUSED; }
    HRESULT GetMethodQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return REFUSED; }
    HRESULT GetMethodOrigin(LPCWSTR, BSTR*) override { return REFUSED; }
};

class RefusingEnumerator : public ComObject<IEnumWbemClassObject> {
 public:
    using ComObject<IEnumWbemClassObject>::ComObject;

    HRESULT Reset() override { return REFUSED; }
    HRESULT Next(long, ULONG, IWbemClassObject**, ULONG*) override { return REFUSED; }
    HRESULT NextAsync(ULONG, IWbemObjectSink*) override { return REFUSED; }
    HRESULT Clone(IEnumWbemClassObject**) override { return REFUSED; }
    HRESULT Skip(long, ULONG) override { return REFUSED; }
};

}  // namespace doubles
