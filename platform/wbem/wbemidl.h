// The management service's interfaces: declarations only, slots in the published order. The service
// implements all but IWbemObjectSink, which its callers do.
//
//   CComPtr<IWbemLocator> locator;
//   locator.CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER);
//   locator->ConnectServer(path, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &services);
//
// For all of them: an out interface comes with a reference that the caller releases, an out BSTR or VARIANT
// is the caller's to free or clear, in arguments stay the caller's. A result is a code of <wbemstatus.h> or
// an HRESULT; where it is a failure the thread's error object may say more. Which threads may use an object
// at once is said by the service; a sink is called on the service's threads.
//
// The published `long` has 32 bits; here it keeps the compiler's width and carries 32-bit values.
#pragma once

#include <oleauto.h>
#include <unknwn.h>
#include <wbemconst.h>
#include <wbemstatus.h>

struct IEnumWbemClassObject;
struct IWbemCallResult;
struct IWbemClassObject;
struct IWbemContext;
struct IWbemObjectSink;
struct IWbemServices;

// The qualifiers of a class, an instance, a property or a method, by name.
struct IWbemQualifierSet : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Get(LPCWSTR wszName, long lFlags, VARIANT* pVal, long* plFlavor) = 0;
    virtual HRESULT STDMETHODCALLTYPE Put(LPCWSTR wszName, VARIANT* pVal, long lFlavor) = 0;
    virtual HRESULT STDMETHODCALLTYPE Delete(LPCWSTR wszName) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNames(long lFlags, SAFEARRAY** pNames) = 0;
    virtual HRESULT STDMETHODCALLTYPE BeginEnumeration(long lFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Next(long lFlags, BSTR* pstrName, VARIANT* pVal, long* plFlavor) = 0;
    virtual HRESULT STDMETHODCALLTYPE EndEnumeration() = 0;

 protected:
    ~IWbemQualifierSet() = default;
};
MGMT_DEFINE_IID(IWbemQualifierSet, 0xdc12a680, 0x737f, 0x11cf, 0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e,
                0x24);

// One class or instance: its properties by name, its qualifiers and its methods. Changes stay in the object
// until it is put through IWbemServices.
struct IWbemClassObject : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetQualifierSet(IWbemQualifierSet** ppQualSet) = 0;
    // `pVal`, `pType` and `plFlavor` may each be null; none is touched on a failure.
    virtual HRESULT STDMETHODCALLTYPE Get(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE* pType,
                                          long* plFlavor) = 0;
    // A null `pVal` or VT_NULL sets the property to null. `Type` is 0 but where a class gets a new property.
    virtual HRESULT STDMETHODCALLTYPE Put(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE Type) = 0;
    virtual HRESULT STDMETHODCALLTYPE Delete(LPCWSTR wszName) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNames(LPCWSTR wszQualifierName, long lFlags, VARIANT* pQualifierVal,
                                               SAFEARRAY** pNames) = 0;
    virtual HRESULT STDMETHODCALLTYPE BeginEnumeration(long lEnumFlags) = 0;
    // WBEM_S_NO_MORE_DATA after the last property. Every out argument may be null.
    virtual HRESULT STDMETHODCALLTYPE Next(long lFlags, BSTR* strName, VARIANT* pVal, CIMTYPE* pType,
                                           long* plFlavor) = 0;
    virtual HRESULT STDMETHODCALLTYPE EndEnumeration() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPropertyQualifierSet(LPCWSTR wszProperty,
                                                              IWbemQualifierSet** ppQualSet) = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IWbemClassObject** ppCopy) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetObjectText(long lFlags, BSTR* pstrObjectText) = 0;
    virtual HRESULT STDMETHODCALLTYPE SpawnDerivedClass(long lFlags, IWbemClassObject** ppNewClass) = 0;
    virtual HRESULT STDMETHODCALLTYPE SpawnInstance(long lFlags, IWbemClassObject** ppNewInstance) = 0;
    virtual HRESULT STDMETHODCALLTYPE CompareTo(long lFlags, IWbemClassObject* pCompareTo) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPropertyOrigin(LPCWSTR wszName, BSTR* pstrClassName) = 0;
    virtual HRESULT STDMETHODCALLTYPE InheritsFrom(LPCWSTR strAncestor) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMethod(LPCWSTR wszName, long lFlags,
                                                IWbemClassObject** ppInSignature,
                                                IWbemClassObject** ppOutSignature) = 0;
    virtual HRESULT STDMETHODCALLTYPE PutMethod(LPCWSTR wszName, long lFlags, IWbemClassObject* pInSignature,
                                                IWbemClassObject* pOutSignature) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteMethod(LPCWSTR wszName) = 0;
    virtual HRESULT STDMETHODCALLTYPE BeginMethodEnumeration(long lEnumFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE NextMethod(long lFlags, BSTR* pstrName,
                                                 IWbemClassObject** ppInSignature,
                                                 IWbemClassObject** ppOutSignature) = 0;
    virtual HRESULT STDMETHODCALLTYPE EndMethodEnumeration() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMethodQualifierSet(LPCWSTR wszMethod,
                                                            IWbemQualifierSet** ppQualSet) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMethodOrigin(LPCWSTR wszMethodName, BSTR* pstrClassName) = 0;

 protected:
    ~IWbemClassObject() = default;
};
MGMT_DEFINE_IID(IWbemClassObject, 0xdc12a681, 0x737f, 0x11cf, 0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);

// The answer of an enumeration or a query, object by object.
struct IEnumWbemClassObject : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    // WBEM_S_NO_ERROR with `uCount` objects; WBEM_S_FALSE with fewer, the end; WBEM_S_TIMEDOUT with fewer,
    // after `lTimeout` milliseconds (WBEM_INFINITE: never).
    virtual HRESULT STDMETHODCALLTYPE Next(long lTimeout, ULONG uCount, IWbemClassObject** apObjects,
                                           ULONG* puReturned) = 0;
    virtual HRESULT STDMETHODCALLTYPE NextAsync(ULONG uCount, IWbemObjectSink* pSink) = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumWbemClassObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(long lTimeout, ULONG nCount) = 0;

 protected:
    ~IEnumWbemClassObject() = default;
};
MGMT_DEFINE_IID(IEnumWbemClassObject, 0x027947e1, 0xd731, 0x11ce, 0xa3, 0x57, 0x00, 0x00, 0x00, 0x00, 0x00,
                0x01);

// Receives the objects and the state of an asynchronous request.
struct IWbemObjectSink : IUnknown {
    // The array and its objects are lent for the call; keep one with AddRef.
    virtual HRESULT STDMETHODCALLTYPE Indicate(long lObjectCount, IWbemClassObject** apObjArray) = 0;
    // `lFlags` is a WBEM_STATUS_TYPE, `hResult` the request's result where that is WBEM_STATUS_COMPLETE.
    virtual HRESULT STDMETHODCALLTYPE SetStatus(long lFlags, HRESULT hResult, BSTR strParam,
                                                IWbemClassObject* pObjParam) = 0;

 protected:
    ~IWbemObjectSink() = default;
};
MGMT_DEFINE_IID(IWbemObjectSink, 0x7c857801, 0x7381, 0x11cf, 0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);

// The answer of a request made with WBEM_FLAG_RETURN_IMMEDIATELY.
struct IWbemCallResult : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetResultObject(long lTimeout, IWbemClassObject** ppResultObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetResultString(long lTimeout, BSTR* pstrResultString) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetResultServices(long lTimeout, IWbemServices** ppServices) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCallStatus(long lTimeout, long* plStatus) = 0;

 protected:
    ~IWbemCallResult() = default;
};
MGMT_DEFINE_IID(IWbemCallResult, 0x44aca675, 0xe8fc, 0x11d0, 0xa0, 0x7c, 0x00, 0xc0, 0x4f, 0xb6, 0x88, 0x20);

// Named values that accompany a request.
struct IWbemContext : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Clone(IWbemContext** ppNewCopy) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNames(long lFlags, SAFEARRAY** pNames) = 0;
    virtual HRESULT STDMETHODCALLTYPE BeginEnumeration(long lFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Next(long lFlags, BSTR* pstrName, VARIANT* pValue) = 0;
    virtual HRESULT STDMETHODCALLTYPE EndEnumeration() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetValue(LPCWSTR wszName, long lFlags, VARIANT* pValue) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetValue(LPCWSTR wszName, long lFlags, VARIANT* pValue) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteValue(LPCWSTR wszName, long lFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteAll() = 0;

 protected:
    ~IWbemContext() = default;
};
MGMT_DEFINE_IID(IWbemContext, 0x44aca674, 0xe8fc, 0x11d0, 0xa0, 0x7c, 0x00, 0xc0, 0x4f, 0xb6, 0x88, 0x20);

// One namespace: its classes, instances and notifications.
struct IWbemServices : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OpenNamespace(const BSTR strNamespace, long lFlags, IWbemContext* pCtx,
                                                    IWbemServices** ppWorkingNamespace,
                                                    IWbemCallResult** ppResult) = 0;
    virtual HRESULT STDMETHODCALLTYPE CancelAsyncCall(IWbemObjectSink* pSink) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryObjectSink(long lFlags, IWbemObjectSink** ppResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetObject(const BSTR strObjectPath, long lFlags, IWbemContext* pCtx,
                                                IWbemClassObject** ppObject,
                                                IWbemCallResult** ppCallResult) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetObjectAsync(const BSTR strObjectPath, long lFlags,
                                                     IWbemContext* pCtx,
                                                     IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE PutClass(IWbemClassObject* pObject, long lFlags, IWbemContext* pCtx,
                                               IWbemCallResult** ppCallResult) = 0;
    virtual HRESULT STDMETHODCALLTYPE PutClassAsync(IWbemClassObject* pObject, long lFlags,
                                                    IWbemContext* pCtx,
                                                    IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteClass(const BSTR strClass, long lFlags, IWbemContext* pCtx,
                                                  IWbemCallResult** ppCallResult) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteClassAsync(const BSTR strClass, long lFlags, IWbemContext* pCtx,
                                                       IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateClassEnum(const BSTR strSuperclass, long lFlags,
                                                      IWbemContext* pCtx, IEnumWbemClassObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateClassEnumAsync(const BSTR strSuperclass, long lFlags,
                                                           IWbemContext* pCtx,
                                                           IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE PutInstance(IWbemClassObject* pInst, long lFlags, IWbemContext* pCtx,
                                                  IWbemCallResult** ppCallResult) = 0;
    virtual HRESULT STDMETHODCALLTYPE PutInstanceAsync(IWbemClassObject* pInst, long lFlags,
                                                       IWbemContext* pCtx,
                                                       IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteInstance(const BSTR strObjectPath, long lFlags,
                                                     IWbemContext* pCtx, IWbemCallResult** ppCallResult) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteInstanceAsync(const BSTR strObjectPath, long lFlags,
                                                          IWbemContext* pCtx,
                                                          IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateInstanceEnum(const BSTR strFilter, long lFlags,
                                                         IWbemContext* pCtx,
                                                         IEnumWbemClassObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateInstanceEnumAsync(const BSTR strFilter, long lFlags,
                                                              IWbemContext* pCtx,
                                                              IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR strQueryLanguage, const BSTR strQuery, long lFlags,
                                                IWbemContext* pCtx, IEnumWbemClassObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE ExecQueryAsync(const BSTR strQueryLanguage, const BSTR strQuery,
                                                     long lFlags, IWbemContext* pCtx,
                                                     IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE ExecNotificationQuery(const BSTR strQueryLanguage, const BSTR strQuery,
                                                            long lFlags, IWbemContext* pCtx,
                                                            IEnumWbemClassObject** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE ExecNotificationQueryAsync(const BSTR strQueryLanguage,
                                                                 const BSTR strQuery, long lFlags,
                                                                 IWbemContext* pCtx,
                                                                 IWbemObjectSink* pResponseHandler) = 0;
    virtual HRESULT STDMETHODCALLTYPE ExecMethod(const BSTR strObjectPath, const BSTR strMethodName,
                                                 long lFlags, IWbemContext* pCtx, IWbemClassObject* pInParams,
                                                 IWbemClassObject** ppOutParams,
                                                 IWbemCallResult** ppCallResult) = 0;
    virtual HRESULT STDMETHODCALLTYPE ExecMethodAsync(const BSTR strObjectPath, const BSTR strMethodName,
                                                      long lFlags, IWbemContext* pCtx,
                                                      IWbemClassObject* pInParams,
                                                      IWbemObjectSink* pResponseHandler) = 0;

 protected:
    ~IWbemServices() = default;
};
MGMT_DEFINE_IID(IWbemServices, 0x9556dc99, 0x828c, 0x11cf, 0xa3, 0x7e, 0x00, 0xaa, 0x00, 0x32, 0x40, 0xc7);

// Opens namespaces.
struct IWbemLocator : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR strNetworkResource, const BSTR strUser,
                                                    const BSTR strPassword, const BSTR strLocale,
                                                    long lSecurityFlags, const BSTR strAuthority,
                                                    IWbemContext* pCtx, IWbemServices** ppNamespace) = 0;

 protected:
    ~IWbemLocator() = default;
};
MGMT_DEFINE_IID(IWbemLocator, 0xdc12a687, 0x737f, 0x11cf, 0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);

// Renders objects as text, and reads them from it. `uObjTextFormat` is a WMI_OBJ_TEXT.
struct IWbemObjectTextSrc : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetText(long lFlags, IWbemClassObject* pObj, ULONG uObjTextFormat,
                                              IWbemContext* pCtx, BSTR* strText) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateFromText(long lFlags, BSTR strText, ULONG uObjTextFormat,
                                                     IWbemContext* pCtx, IWbemClassObject** pNewObj) = 0;

 protected:
    ~IWbemObjectTextSrc() = default;
};
MGMT_DEFINE_IID(IWbemObjectTextSrc, 0xbfbf883a, 0xcad7, 0x11d3, 0xa1, 0x1b, 0x00, 0x10, 0x5a, 0x1f, 0x51,
                0x5a);

// How a compilation ended. Lines count from 1; `ObjectNum` is how many declarations were put.
struct WBEM_COMPILE_STATUS_INFO {
    long lPhaseError;
    HRESULT hRes;
    long ObjectNum;
    long FirstLine;
    long LastLine;
    DWORD dwOutFlags;
};

// Stores the classes and instances of a MOF text. `lOptionFlags` are WBEM_COMPILER_OPTIONS, `lClassFlags` and
// `lInstanceFlags` WBEM_CHANGE_FLAG_TYPEs. S_OK where all was stored, else S_FALSE or a failure, with
// `*pInfo`.
struct IMofCompiler : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CompileFile(LPWSTR FileName, LPWSTR ServerAndNamespace, LPWSTR User,
                                                  LPWSTR Authority, LPWSTR Password, LONG lOptionFlags,
                                                  LONG lClassFlags, LONG lInstanceFlags,
                                                  WBEM_COMPILE_STATUS_INFO* pInfo) = 0;
    // `BuffSize` is in bytes.
    virtual HRESULT STDMETHODCALLTYPE CompileBuffer(long BuffSize, BYTE* pBuffer, LPWSTR ServerAndNamespace,
                                                    LPWSTR User, LPWSTR Authority, LPWSTR Password,
                                                    LONG lOptionFlags, LONG lClassFlags, LONG lInstanceFlags,
                                                    WBEM_COMPILE_STATUS_INFO* pInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateBMOF(LPWSTR TextFileName, LPWSTR BMOFFileName,
                                                 LPWSTR ServerAndNamespace, LONG lOptionFlags,
                                                 LONG lClassFlags, LONG lInstanceFlags,
                                                 WBEM_COMPILE_STATUS_INFO* pInfo) = 0;

 protected:
    ~IMofCompiler() = default;
};
MGMT_DEFINE_IID(IMofCompiler, 0x6daf974e, 0x2e37, 0x11d2, 0xae, 0xc9, 0x00, 0xc0, 0x4f, 0xb6, 0x88, 0x20);

DEFINE_GUID(CLSID_WbemLocator, 0x4590f811, 0x1d3a, 0x11d0, 0x89, 0x1f, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);
DEFINE_GUID(CLSID_WbemContext, 0x674b6698, 0xee92, 0x11d0, 0xad, 0x71, 0x00, 0xc0, 0x4f, 0xd8, 0xfd, 0xff);
DEFINE_GUID(CLSID_WbemObjectTextSrc, 0x8d1c559d, 0x84f0, 0x4bb3, 0xa7, 0xd5, 0x56, 0xa7, 0x43, 0x5a, 0x9b,
            0xa6);
DEFINE_GUID(CLSID_MofCompiler, 0x6daf9757, 0x2e37, 0x11d2, 0xae, 0xc9, 0x00, 0xc0, 0x4f, 0xb6, 0x88, 0x20);
