// Who a caller may be. Only for service/com.
//
// The service runs in its caller's process, so a caller always acts with the rights of the process's account.
// No identity named: the process's own. An identity that names this very account changes nothing and is
// accepted, whatever its password; any other cannot be verified here and is refused with
// WBEM_E_ACCESS_DENIED, never accepted unchecked.
#pragma once

#include <string_view>

#include "service/model/status.h"

namespace service {

// `user` may be "name", "DOMAIN\name" or "name@domain"; `domain` adds one. The domain must be empty, "." or
// this machine's name.
Status CheckIdentity(std::wstring_view user, std::wstring_view domain);

// This machine's name, as __SERVER gives it.
std::string MachineName();

// Whether a path's server is this machine: ".", "localhost" or its name.
bool IsThisMachine(std::string_view server);

}  // namespace service
