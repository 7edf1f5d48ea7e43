// Services: IWbemServices for one namespace. Only for service/com.
//
//   CComPtr<Services> services = MakeCom<Services>(connection);
//
// Any number of threads may call one at once. Objects it hands out belong to one thread at a time.
//
// IClientSecurity is how a caller names the identity that its calls are made with, see identity.h. Once an
// identity was refused every request is, with WBEM_E_ACCESS_DENIED, until one is accepted: who named an
// identity must not find that another one was used.
#pragma once

#include <atomic>

#include <objbase.h>
#include <wbemidl.h>

#include "service/com/com_object.h"
#include "service/com/connection.h"
#include "service/model/object_path.h"

namespace service {

class Services final : public ComObject<IWbemServices, IClientSecurity> {
 public:
    // IClientSecurity
    HRESULT STDMETHODCALLTYPE QueryBlanket(IUnknown* pProxy, DWORD* pAuthnSvc, DWORD* pAuthzSvc,
                                           OLECHAR** pServerPrincName, DWORD* pAuthnLevel, DWORD* pImpLevel,
                                           void** pAuthInfo, DWORD* pCapabilities) override;
    HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown* pProxy, DWORD dwAuthnSvc, DWORD dwAuthzSvc,
                                         OLECHAR* pServerPrincName, DWORD dwAuthnLevel, DWORD dwImpLevel,
                                         void* pAuthInfo, DWORD dwCapabilities) override;
    HRESULT STDMETHODCALLTYPE CopyProxy(IUnknown* pProxy, IUnknown** ppCopy) override;

    // IWbemServices: what is supported
    HRESULT STDMETHODCALLTYPE OpenNamespace(const BSTR strNamespace, long lFlags, IWbemContext* pCtx,
                                            IWbemServices** ppWorkingNamespace,
                                            IWbemCallResult** ppResult) override;
    HRESULT STDMETHODCALLTYPE GetObject(const BSTR strObjectPath, long lFlags, IWbemContext* pCtx,
                                        IWbemClassObject** ppObject, IWbemCallResult** ppCallResult) override;
    HRESULT STDMETHODCALLTYPE PutClass(IWbemClassObject* pObject, long lFlags, IWbemContext* pCtx,
                                       IWbemCallResult** ppCallResult) override;
    HRESULT STDMETHODCALLTYPE DeleteClass(const BSTR strClass, long lFlags, IWbemContext* pCtx,
                                          IWbemCallResult** ppCallResult) override;
    HRESULT STDMETHODCALLTYPE CreateClassEnum(const BSTR strSuperclass, long lFlags, IWbemContext* pCtx,
                                              IEnumWbemClassObject** ppEnum) override;
    HRESULT STDMETHODCALLTYPE PutInstance(IWbemClassObject* pInst, long lFlags, IWbemContext* pCtx,
                                          IWbemCallResult** ppCallResult) override;
    HRESULT STDMETHODCALLTYPE DeleteInstance(const BSTR strObjectPath, long lFlags, IWbemContext* pCtx,
                                             IWbemCallResult** ppCallResult) override;
    HRESULT STDMETHODCALLTYPE CreateInstanceEnum(const BSTR strFilter, long lFlags, IWbemContext* pCtx,
                                                 IEnumWbemClassObject** ppEnum) override;
    HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR strQueryLanguage, const BSTR strQuery, long lFlags,
                                        IWbemContext* pCtx, IEnumWbemClassObject** ppEnum) override;
    HRESULT STDMETHODCALLTYPE ExecNotificationQueryAsync(const BSTR strQueryLanguage, const BSTR strQuery,
                                                         long lFlags, IWbemContext* pCtx,
                                                         IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE CancelAsyncCall(IWbemObjectSink* pSink) override;

    // IWbemServices: what is not, each with WBEM_E_NOT_SUPPORTED
    HRESULT STDMETHODCALLTYPE QueryObjectSink(long lFlags, IWbemObjectSink** ppResponseHandler) override;
    HRESULT STDMETHODCALLTYPE GetObjectAsync(const BSTR strObjectPath, long lFlags, IWbemContext* pCtx,
                                             IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE PutClassAsync(IWbemClassObject* pObject, long lFlags, IWbemContext* pCtx,
                                            IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE DeleteClassAsync(const BSTR strClass, long lFlags, IWbemContext* pCtx,
                                               IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE CreateClassEnumAsync(const BSTR strSuperclass, long lFlags, IWbemContext* pCtx,
                                                   IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE PutInstanceAsync(IWbemClassObject* pInst, long lFlags, IWbemContext* pCtx,
                                               IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE DeleteInstanceAsync(const BSTR strObjectPath, long lFlags, IWbemContext* pCtx,
                                                  IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE CreateInstanceEnumAsync(const BSTR strFilter, long lFlags, IWbemContext* pCtx,
                                                      IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE ExecQueryAsync(const BSTR strQueryLanguage, const BSTR strQuery, long lFlags,
                                             IWbemContext* pCtx, IWbemObjectSink* pResponseHandler) override;
    HRESULT STDMETHODCALLTYPE ExecNotificationQuery(const BSTR strQueryLanguage, const BSTR strQuery,
                                                    long lFlags, IWbemContext* pCtx,
                                                    IEnumWbemClassObject** ppEnum) override;
    HRESULT STDMETHODCALLTYPE ExecMethod(const BSTR strObjectPath, const BSTR strMethodName, long lFlags,
                                         IWbemContext* pCtx, IWbemClassObject* pInParams,
                                         IWbemClassObject** ppOutParams,
                                         IWbemCallResult** ppCallResult) override;
    HRESULT STDMETHODCALLTYPE ExecMethodAsync(const BSTR strObjectPath, const BSTR strMethodName, long lFlags,
                                              IWbemContext* pCtx, IWbemClassObject* pInParams,
                                              IWbemObjectSink* pResponseHandler) override;

 private:
    template <typename Object, typename... Arguments>
    friend CComPtr<Object> MakeCom(Arguments&&... arguments);

    explicit Services(ConnectionPtr connection) noexcept : connection_(std::move(connection)) {}
    ~Services() override = default;

    Status CheckIdentityAccepted() const;
    // The connection for the namespace that a path names; this one for a path without.
    Result<ConnectionPtr> ConnectionFor(const ObjectPath& path) const;
    Result<CComPtr<IWbemClassObject>> Fetch(const std::string& path) const;

    const ConnectionPtr connection_;
    std::atomic<bool> is_refused_{false};
};

// The connection to the namespace `path` of the default store.
Result<ConnectionPtr> Connect(const std::string& path);

}  // namespace service
