// What stands between the service's rooms, which use Status and exceptions, and COM, which knows neither.
// Only for service/com.
//
//   HRESULT Services::DeleteInstance(...) {
//       return AtBoundary([&]() -> Status { ... return repository.DeleteInstance(space, path); });
//   }
//
// A fault becomes its code, and its reason the thread's error object. No exception passes.
#pragma once

#include <new>
#include <string>
#include <string_view>

#include <oleauto.h>

#include "service/model/status.h"

namespace service {

// Leaves the reason as the thread's error object and returns the code.
HRESULT Report(const Status& fault) noexcept;

// What the exception that is being handled means to a caller.
HRESULT ReportCurrentException() noexcept;

template <typename Operation>
HRESULT AtBoundary(Operation operation) noexcept {
    try {
        const Status result = operation();
        return result.ok() ? S_OK : Report(result);
    } catch (...) {
        return ReportCurrentException();
    }
}

// WBEM_E_INVALID_PARAMETER for an argument that must not be null, and for flags where there are none.
Status NullArgument(const char* what);
Status CheckNoFlags(long flags);

// The UTF-8 form of a caller's text; WBEM_E_INVALID_PARAMETER, naming `what`, when it has none.
Result<std::string> TakeText(std::wstring_view text, const char* what);
// The same of a BSTR, over its whole length; null counts as empty.
Result<std::string> TakeText(BSTR text, const char* what);

}  // namespace service
