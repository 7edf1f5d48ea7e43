// Locator: IWbemLocator, where every connection begins. Only for service/com.
//
// A connection fails with WBEM_E_INVALID_NAMESPACE for a namespace that is not there or is no path, with the
// store's status when the store cannot be opened, with WBEM_E_ACCESS_DENIED for an identity that is refused.
// Any number of threads may use one.
#pragma once

#include <wbemidl.h>

#include "service/com/com_object.h"

namespace service {

class Locator final : public ComObject<IWbemLocator> {
 public:
    HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR strNetworkResource, const BSTR strUser,
                                            const BSTR strPassword, const BSTR strLocale, long lSecurityFlags,
                                            const BSTR strAuthority, IWbemContext* pCtx,
                                            IWbemServices** ppNamespace) override;

 private:
    template <typename Object, typename... Arguments>
    friend CComPtr<Object> MakeCom(Arguments&&... arguments);

    Locator() = default;
    ~Locator() override = default;
};

}  // namespace service
