// What the tool asks of the management service itself, because the library has no call for it: enumerations
// of namespaces and classes, and paths that the library's own would cut.
//
//   const CComPtr<IWbemServices> services = Connect(arguments.namespace_path);
//   ForEach(*Classes(*services, L""), [](IWbemClassObject& object) { ... });
//
// The calling thread must have initialised COM. Failures are thrown as OperationFailure.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <atlbase.h>
#include <wbemidl.h>

namespace mgmtctl {

CComPtr<IWbemServices> Connect(const std::wstring& namespace_path);

// All classes below `superclass`, or all of the namespace where it is empty.
CComPtr<IEnumWbemClassObject> Classes(IWbemServices& services, const std::wstring& superclass);

bool HasSubclasses(IWbemServices& services, const std::wstring& class_name);

// The instances of a class and of its subclasses, or with `is_shallow` its own alone.
CComPtr<IEnumWbemClassObject> Instances(IWbemServices& services, const std::wstring& class_name,
                                        bool is_shallow = false);

// The instances that a WQL query finds.
CComPtr<IEnumWbemClassObject> Find(IWbemServices& services, const std::wstring& query);

// The objects that come next, at most `count`: fewer when the service has no more at hand within a moment, so
// that what is there can be shown. Empty at the end only.
std::vector<CComPtr<IWbemClassObject>> NextObjects(IEnumWbemClassObject& objects, std::size_t count);

void ForEach(IEnumWbemClassObject& objects, const std::function<void(IWbemClassObject&)>& visit);

}  // namespace mgmtctl
