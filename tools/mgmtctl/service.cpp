#include "tools/mgmtctl/service.h"

#include <comutil.h>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {

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

CComPtr<IEnumWbemClassObject> Instances(IWbemServices& services, const std::wstring& class_name) {
    CComPtr<IEnumWbemClassObject> instances;
    Check(services.CreateInstanceEnum(_bstr_t(class_name.c_str()), WBEM_FLAG_DEEP, nullptr, &instances),
          "cannot list the instances of " + Utf8(class_name));
    return instances;
}

void ForEach(IEnumWbemClassObject& objects, const std::function<void(IWbemClassObject&)>& visit) {
    while (true) {
        CComPtr<IWbemClassObject> object;
        ULONG count = 0;
        Check(objects.Next(WBEM_INFINITE, 1, &object, &count), "cannot read the enumeration");
        if (count == 0) return;
        visit(*object);
    }
}

}  // namespace mgmtctl
