#include "service/com/locator.h"

#include "service/com/boundary.h"
#include "service/com/identity.h"
#include "service/com/services.h"

namespace service {

HRESULT Locator::ConnectServer(const BSTR strNetworkResource, const BSTR strUser, const BSTR, const BSTR,
                               long lSecurityFlags, const BSTR, IWbemContext*, IWbemServices** ppNamespace) {
    return AtBoundary([&]() -> Status {
        if (!ppNamespace) return NullArgument("ppNamespace");
        *ppNamespace = nullptr;
        if (lSecurityFlags &
            ~static_cast<long>(WBEM_FLAG_CONNECT_USE_MAX_WAIT | WBEM_FLAG_CONNECT_REPOSITORY_ONLY)) {
            return {WBEM_E_INVALID_PARAMETER, "these security flags are not known"};
        }
        if (strUser) SERVICE_RETURN_IF_ERROR(CheckIdentity({strUser, SysStringLen(strUser)}, {}));
        SERVICE_ASSIGN_OR_RETURN(const std::string path,
                                 TakeText(strNetworkResource, "the namespace's path"));
        SERVICE_ASSIGN_OR_RETURN(ConnectionPtr connection, Connect(path));
        *ppNamespace = MakeCom<Services>(std::move(connection)).Detach();
        return {};
    });
}

}  // namespace service
