// The service's interfaces with every request refused (WBEM_E_NOT_SUPPORTED): a double overrides those that
// its test is about.
#pragma once

#include <wbemidl.h>

#include "tests/doubles/com_object.h"

namespace doubles {

inline constexpr HRESULT REFUSED = WBEM_E_NOT_SUPPORTED;

template <typename... Others>
class RefusingServices : public ComObject<IWbemServices, Others...> {
    // What most requests take.
    using Context = IWbemContext*;
    using Result = IWbemCallResult**;
    using Object = IWbemClassObject*;
    using Enumerator = IEnumWbemClassObject**;
    using Sink = IWbemObjectSink*;

 public:
    using ComObject<IWbemServices, Others...>::ComObject;

    HRESULT OpenNamespace(const BSTR, long, Context, IWbemServices**, Result) override { return REFUSED; }
    HRESULT CancelAsyncCall(Sink) override { return REFUSED; }
    HRESULT QueryObjectSink(long, Sink*) override { return REFUSED; }
    HRESULT GetObject(const BSTR, long, Context, Object*, Result) override { return REFUSED; }
    HRESULT GetObjectAsync(const BSTR, long, Context, Sink) override { return REFUSED; }
    HRESULT PutClass(Object, long, Context, Result) override { return REFUSED; }
    HRESULT PutClassAsync(Object, long, Context, Sink) override { return REFUSED; }
    HRESULT DeleteClass(const BSTR, long, Context, Result) override { return REFUSED; }
    HRESULT DeleteClassAsync(const BSTR, long, Context, Sink) override { return REFUSED; }
    HRESULT CreateClassEnum(const BSTR, long, Context, Enumerator) override { return REFUSED; }
    HRESULT CreateClassEnumAsync(const BSTR, long, Context, Sink) override { return REFUSED; }
    HRESULT PutInstance(Object, long, Context, Result) override { return REFUSED; }
    HRESULT PutInstanceAsync(Object, long, Context, Sink) override { return REFUSED; }
    HRESULT DeleteInstance(const BSTR, long, Context, Result) override { return REFUSED; }
    HRESULT DeleteInstanceAsync(const BSTR, long, Context, Sink) override { return REFUSED; }
    HRESULT CreateInstanceEnum(const BSTR, long, Context, Enumerator) override { return REFUSED; }
    HRESULT CreateInstanceEnumAsync(const BSTR, long, Context, Sink) override { return REFUSED; }
    HRESULT ExecQuery(const BSTR, const BSTR, long, Context, Enumerator) override { return REFUSED; }
    HRESULT ExecQueryAsync(const BSTR, const BSTR, long, Context, Sink) override { return REFUSED; }
    HRESULT ExecNotificationQuery(const BSTR, const BSTR, long, Context, Enumerator) override {
        return REFUSED;
    }
    HRESULT ExecNotificationQueryAsync(const BSTR, const BSTR, long, Context, Sink) override {
        return REFUSED;
    }
    HRESULT ExecMethod(const BSTR, const BSTR, long, Context, Object, Object*, Result) override {
        return REFUSED;
    }
    HRESULT ExecMethodAsync(const BSTR, const BSTR, long, Context, Object, Sink) override { return REFUSED; }
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
    explicit RefusingEnumerator(std::atomic<long>& live) noexcept : ComObject(live) {}

    HRESULT Reset() override { return REFUSED; }
    HRESULT Next(long, ULONG, IWbemClassObject**, ULONG*) override { return REFUSED; }
    HRESULT NextAsync(ULONG, IWbemObjectSink*) override { return REFUSED; }
    HRESULT Clone(IEnumWbemClassObject**) override { return REFUSED; }
    HRESULT Skip(long, ULONG) override { return REFUSED; }
};

}  // namespace doubles
