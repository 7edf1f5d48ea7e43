// This platform's own: how far the compilation of a MOF text has come, and what it warns of.
//
//   CComPtr<IMofProgressSource> source;
//   if (SUCCEEDED(compiler.QueryInterface(&source))) source->SetProgress(&mine);
//   compiler->CompileFile(...);
//
// A compiler that came from elsewhere need not offer it.
#pragma once

#include <unknwn.h>
#include <wtypes.h>

// Implemented by whoever wants to know. Called on the thread that compiles, within the call that does: now
// and then, and with `done` equal to `total` when all is declared and only the commit is left. Should a
// compilation begin anew, so does `done`. The result is ignored. It must not
// write to the store that is compiled into: that is refused.
struct IMofProgress : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Progress(ULONGLONG done, ULONGLONG total) = 0;
    // One sentence with the file and the line: something was read past. Valid during the call.
    virtual HRESULT STDMETHODCALLTYPE Warning(LPCWSTR sentence) = 0;

 protected:
    ~IMofProgress() = default;
};
MGMT_DEFINE_IID(IMofProgress, 0x5b1f0c52, 0x8d0e, 0x4a6b, 0x93, 0x1f, 0x6c, 0x42, 0xd8, 0x07, 0x5e, 0xa1);

// Offered by the compiler.
struct IMofProgressSource : IUnknown {
    // For the compilations that begin from now on; the compiler takes a reference. Null for nobody.
    virtual HRESULT STDMETHODCALLTYPE SetProgress(IMofProgress* progress) = 0;

 protected:
    ~IMofProgressSource() = default;
};
MGMT_DEFINE_IID(IMofProgressSource, 0x1e7d3a94, 0x52c6, 0x4f38, 0xb0, 0x6d, 0xa9, 0x5c, 0x13, 0xe4, 0x77,
                0x20);
