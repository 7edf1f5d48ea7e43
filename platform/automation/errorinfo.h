// The thread's error object: why the last call on this thread failed.
//
//   ReportError(WBEM_E_NOT_FOUND, L"There is no class \"A\".");      // by whoever found the fault
//   IErrorInfo* info = nullptr;                                      // by whoever asks
//   if (GetErrorInfo(0, &info) == S_OK) { info->GetDescription(&text); info->Release(); }
//
// Every thread has its own error object and sees no other's. GetErrorInfo takes the object away: a second
// call answers S_FALSE until something is reported again. An error object may be handed to another thread; it
// must not be changed while two threads use it.
#pragma once

#include <platform_api.h>
#include <unknwn.h>
#include <wtypes.h>

// What an error object tells. Each out string is a new BSTR that the caller frees, null where nothing was
// set.
struct IErrorInfo : IUnknown {
    // The interface whose method failed; GUID_NULL where that was not told.
    virtual HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSource(BSTR* pBstrSource) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDescription(BSTR* pBstrDescription) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* pBstrHelpFile) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* pdwHelpContext) = 0;

 protected:
    ~IErrorInfo() = default;
};
MGMT_DEFINE_IID(IErrorInfo, 0x1cf2b120, 0x547d, 0x101b, 0x8e, 0x65, 0x08, 0x00, 0x2b, 0x2b, 0xd1, 0x19);

// How an error object is filled in. Each string is copied; null clears.
struct ICreateErrorInfo : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetGUID(REFGUID rguid) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR szSource) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR szDescription) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR szHelpFile) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD dwHelpContext) = 0;

 protected:
    ~ICreateErrorInfo() = default;
};
MGMT_DEFINE_IID(ICreateErrorInfo, 0x22f03340, 0x547d, 0x101b, 0x8e, 0x65, 0x08, 0x00, 0x2b, 0x2b, 0xd1, 0x19);

// This platform's own: the failing code that an error object explains. An error object that came from
// elsewhere need not offer it.
struct IErrorCode : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCode(HRESULT* code) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetCode(HRESULT code) = 0;

 protected:
    ~IErrorCode() = default;
};
MGMT_DEFINE_IID(IErrorCode, 0x8b8a6f0e, 0x3c5d, 0x4f0e, 0x9a, 0x41, 0x5e, 0x2d, 0x77, 0xc1, 0x0b, 0x94);

// Makes an empty error object, which also offers IErrorInfo and IErrorCode. E_OUTOFMEMORY, E_INVALIDARG for a
// null argument.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE CreateErrorInfo(ICreateErrorInfo** pperrinfo) noexcept;

// Makes `perrinfo` the thread's error object, with a reference of the thread's own; null clears.
// `dwReserved` must be 0, else E_INVALIDARG.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo) noexcept;

// Hands the thread's error object and its reference to the caller and clears it. S_FALSE, and null, where
// there is none.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo) noexcept;

// Sets an error object with `code` and `sentence` (copied; null gives none) as the thread's. Never fails into
// the caller: where memory runs out the thread is left with the code alone, or without an error object, but
// never with an earlier one.
MGMT_PLATFORM_API void ReportError(HRESULT code, const wchar_t* sentence) noexcept;
