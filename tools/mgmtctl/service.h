// What the tool asks of the management service itself, because the library has no call for it: enumerations
// of namespaces and classes, and paths that the library's own would cut.
//
//   const CComPtr<IWbemServices> services = Connect(arguments.namespace_path);
//   ForEach(*Classes(*services, L""), [](IWbemClassObject& object) { ... });
//
// The calling thread must have initialised COM. Failures are thrown as OperationFailure.
#pragma once

#include <functional>
#include <string>

#include <atlbase.h>
#include <wbemidl.h>

namespace mgmtctl {

CComPtr<IWbemServices> Connect(const std::wstring& namespace_path);

// All classes below `superclass`, or all of the namespace where it is empty.
CComPtr<IEnumWbemClassObject> Classes(IWbemServices& services, const std::wstring& superclass);

// The instances of a class.
CComPtr<IEnumWbemClassObject> Instances(IWbemServices& services, const std::wstring& class_name);

void ForEach(IEnumWbemClassObject& objects, const std::function<void(IWbemClassObject&)>& visit);

}  // namespace mgmtctl
