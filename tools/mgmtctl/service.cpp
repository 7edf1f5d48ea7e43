#include "tools/mgmtctl/service.h"

#include <comutil.h>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr long STREAMED_FLAGS = WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY;
constexpr long PATIENCE_MS = 100;
constexpr std::size_t AT_ONCE = 100;

}  // namespace

CComPtr<IWbemServices> Connect(const std::wstring& namespace_path) {
    const std::string attempt = "cannot open the namespace " + Utf8(namespace_path);
    ForgetReason();
    CComPtr<IWbemLocator> locator;
    Check(locator.CoCreateInstance(CLSID_WbemLocator), attempt);
    CComPtr<IWbemServices> services;
    Check(locator->ConnectServer(_bstr_t(namespace_path.c_str()), nullptr, nullptr, nullptr, 0, nullptr,
                                 nullptr, &services),
          attempt);
    return services;
}

CComPtr<IEnumWbemClassObject> Classes(IWbemServices& services, const std::wstring& superclass) {
    CComPtr<IEnumWbemClassObject> classes;
    Check(services.CreateClassEnum(_bstr_t(superclass.c_str()), WBEM_FLAG_DEEP, nullptr, &classes),
          "cannot list the classes");
    return classes;
}

// The service's own classes, such as __Namespace, are not among the namespace's.
bool HasSubclasses(IWbemServices& services, const std::wstring& class_name) {
    if (class_name.starts_with(L"__")) return false;
    return !NextObjects(*Classes(services, class_name), 1).empty();
}

CComPtr<IEnumWbemClassObject> Instances(IWbemServices& services, const std::wstring& class_name,
                                        bool is_shallow) {
    CComPtr<IEnumWbemClassObject> instances;
    const long depth = is_shallow ? WBEM_FLAG_SHALLOW : WBEM_FLAG_DEEP;
    Check(
        services.CreateInstanceEnum(_bstr_t(class_name.c_str()), depth | STREAMED_FLAGS, nullptr, &instances),
        "cannot list the instances of " + Utf8(class_name));
    return instances;
}

CComPtr<IEnumWbemClassObject> Find(IWbemServices& services, const std::wstring& query) {
    CComPtr<IEnumWbemClassObject> instances;
    ForgetReason();
    const HRESULT result =
        services.ExecQuery(_bstr_t(L"WQL"), _bstr_t(query.c_str()), STREAMED_FLAGS, nullptr, &instances);
    if (FAILED(result))
        throw OperationFailure("the query fails", TakeReason(result), "The query is: " + Utf8(query));
    return instances;
}

std::vector<CComPtr<IWbemClassObject>> NextObjects(IEnumWbemClassObject& objects, std::size_t count) {
    std::vector<IWbemClassObject*> raw(count);
    std::vector<CComPtr<IWbemClassObject>> next(count);
    HRESULT result = WBEM_S_TIMEDOUT;
    ULONG ready = 0;
    while (count != 0 && ready == 0 && result == WBEM_S_TIMEDOUT) {
        result = objects.Next(PATIENCE_MS, static_cast<ULONG>(count), raw.data(), &ready);
        Check(result, "cannot read the instances to their end");
    }
    for (ULONG i = 0; i < ready; ++i)
        next[i].Attach(raw[i]);
    next.resize(ready);
    return next;
}

void ForEach(IEnumWbemClassObject& objects, const std::function<void(IWbemClassObject&)>& visit) {
    for (auto some = NextObjects(objects, AT_ONCE); !some.empty(); some = NextObjects(objects, AT_ONCE)) {
        for (const CComPtr<IWbemClassObject>& object : some)
            visit(*object);
    }
}

}  // namespace mgmtctl
