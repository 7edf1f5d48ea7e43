// The requests that answer with instances: of a class, and of a query. Only for service/com.
//
//   Result<CComPtr<IEnumWbemClassObject>> all = EnumerateInstances(connection, "Policy", WBEM_FLAG_SHALLOW);
//   Result<CComPtr<IEnumWbemClassObject>> some =
//       QueryInstances(connection, "SELECT * FROM Policy WHERE Days > 30", 0);
//
// Any thread.
#pragma once

#include <string>

#include <atlbase.h>
#include <wbemidl.h>

#include "service/com/connection.h"
#include "service/model/status.h"

namespace service {

// The instances of the class and of those derived from it, or with WBEM_FLAG_SHALLOW its own alone.
Result<CComPtr<IEnumWbemClassObject>> EnumerateInstances(const ConnectionPtr& connection,
                                                         const std::string& class_name, long flags);

// WBEM_E_INVALID_QUERY_TYPE for another language than "WQL".
Status CheckQueryLanguage(BSTR language);

// The instances of the class behind FROM, and of those derived from it, that match. Those that must have a
// certain key are looked up and not searched for. With a list behind SELECT the instances have just those
// properties: they have no path unless the key is listed, or WBEM_FLAG_ENSURE_LOCATABLE is given, which adds
// it, and they cannot be stored.
Result<CComPtr<IEnumWbemClassObject>> QueryInstances(const ConnectionPtr& connection,
                                                     const std::string& query, long flags);

}  // namespace service
