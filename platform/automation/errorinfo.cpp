#include <atomic>
#include <new>
#include <utility>

#include <errorinfo.h>
#include <oleauto.h>

namespace {

// A BSTR that an error object keeps.
class Text {
 public:
    Text() noexcept = default;
    ~Text() { SysFreeString(text_); }

    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    // A null `text` clears. E_OUTOFMEMORY leaves the text as it was.
    HRESULT Set(LPCOLESTR text) noexcept {
        const BSTR copy = SysAllocString(text);
        if (copy == nullptr && text != nullptr) return E_OUTOFMEMORY;
        SysFreeString(std::exchange(text_, copy));
        return S_OK;
    }

    HRESULT CopyTo(BSTR* copy) const noexcept {
        if (copy == nullptr) return E_INVALIDARG;
        *copy = text_ != nullptr ? SysAllocStringLen(text_, SysStringLen(text_)) : nullptr;
        return *copy == nullptr && text_ != nullptr ? E_OUTOFMEMORY : S_OK;
    }

 private:
    BSTR text_ = nullptr;
};

class ErrorObject final : public ICreateErrorInfo, public IErrorInfo, public IErrorCode {
 public:
    ErrorObject() noexcept = default;
    virtual ~ErrorObject() = default;

    ErrorObject(const ErrorObject&) = delete;
    ErrorObject& operator=(const ErrorObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
        if (ppvObject == nullptr) return E_POINTER;
        *ppvObject = Find(riid);
        if (*ppvObject == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }

    ULONG STDMETHODCALLTYPE AddRef() override {
        return references_.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) delete this;
        return left;
    }

    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID rguid) override {
        guid_ = rguid;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR szSource) override { return source_.Set(szSource); }
    HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR szDescription) override {
        return description_.Set(szDescription);
    }
    HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR szHelpFile) override { return help_file_.Set(szHelpFile); }
    HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD dwHelpContext) override {
        help_context_ = dwHelpContext;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) override { return Give(guid_, pGUID); }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR* pBstrSource) override { return source_.CopyTo(pBstrSource); }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* pBstrDescription) override {
        return description_.CopyTo(pBstrDescription);
    }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* pBstrHelpFile) override {
        return help_file_.CopyTo(pBstrHelpFile);
    }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* pdwHelpContext) override {
        return Give(help_context_, pdwHelpContext);
    }

    HRESULT STDMETHODCALLTYPE GetCode(HRESULT* code) override { return Give(code_, code); }
    HRESULT STDMETHODCALLTYPE SetCode(HRESULT code) override {
        code_ = code;
        return S_OK;
    }

 private:
    void* Find(REFIID riid) noexcept {
        if (riid == IID_IUnknown || riid == IID_ICreateErrorInfo) return static_cast<ICreateErrorInfo*>(this);
        if (riid == IID_IErrorInfo) return static_cast<IErrorInfo*>(this);
        if (riid == IID_IErrorCode) return static_cast<IErrorCode*>(this);
        return nullptr;
    }

    template <typename T>
    static HRESULT Give(const T& value, T* out) noexcept {
        if (out == nullptr) return E_INVALIDARG;
        *out = value;
        return S_OK;
    }

    std::atomic<ULONG> references_{1};
    GUID guid_ = GUID_NULL;
    Text source_;
    Text description_;
    Text help_file_;
    DWORD help_context_ = 0;
    HRESULT code_ = S_OK;
};

// One thread's error object, which it holds a reference of.
class ThreadError {
 public:
    ThreadError() noexcept = default;
    ~ThreadError() { Attach(nullptr); }

    ThreadError(const ThreadError&) = delete;
    ThreadError& operator=(const ThreadError&) = delete;

    // Takes the caller's reference. The slot has its new content before the old object is released, because
    // that object may belong to others and report an error of its own.
    void Attach(IErrorInfo* info) noexcept {
        IErrorInfo* const old = std::exchange(info_, info);
        if (old != nullptr) old->Release();
    }
    IErrorInfo* Detach() noexcept { return std::exchange(info_, nullptr); }

 private:
    IErrorInfo* info_ = nullptr;
};

thread_local ThreadError thread_error;

}  // namespace

HRESULT STDAPICALLTYPE CreateErrorInfo(ICreateErrorInfo** pperrinfo) noexcept {
    if (pperrinfo == nullptr) return E_INVALIDARG;
    *pperrinfo = new (std::nothrow) ErrorObject;
    return *pperrinfo != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT STDAPICALLTYPE SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo) noexcept {
    if (dwReserved != 0) return E_INVALIDARG;
    if (perrinfo != nullptr) perrinfo->AddRef();
    thread_error.Attach(perrinfo);
    return S_OK;
}

HRESULT STDAPICALLTYPE GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo) noexcept {
    if (dwReserved != 0 || pperrinfo == nullptr) return E_INVALIDARG;
    *pperrinfo = thread_error.Detach();
    return *pperrinfo != nullptr ? S_OK : S_FALSE;
}

void ReportError(HRESULT code, const wchar_t* sentence) noexcept {
    auto* const error = new (std::nothrow) ErrorObject;
    thread_error.Attach(error);
    if (error == nullptr) return;
    error->SetCode(code);
    error->SetDescription(const_cast<LPOLESTR>(sentence));
}
