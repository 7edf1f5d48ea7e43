// MofCompiler: IMofCompiler, which stores what a schema file declares. Only for service/com.
//
// One call is one transaction: it lands whole or not at all. `FileName` may list several files, separated by
// line feeds, which are then one import. On a fault the result is the fault's code, the thread's error object
// says "file:line:column: what was found and what was expected", and `pInfo` has the line. On success
// `pInfo->ObjectNum` counts the declarations of qualifiers, the classes, the instances and what was deleted.
//
// What `#pragma include` names is read from the file's folder, or from the current directory for a buffer.
//
// Option flags: WBEM_FLAG_CHECK_ONLY does everything and then stores nothing; the others have no effect. The
// flags of classes and instances are WBEM_FLAG_CREATE_OR_UPDATE, WBEM_FLAG_UPDATE_ONLY and
// WBEM_FLAG_CREATE_ONLY; what a text says by #pragma classflags and instanceflags goes before them. With
// WBEM_FLAG_UPDATE_FORCE_MODE in the flags of classes, classes change and are deleted with their instances
// where that takes something from them. Without a namespace argument a text begins in root\default.
//
// One thread at a time.
#pragma once

#include <atlbase.h>
#include <mofprogress.h>
#include <wbemidl.h>

#include "service/com/com_object.h"

namespace service {

class MofCompiler final : public ComObject<IMofCompiler, IMofProgressSource> {
 public:
    HRESULT STDMETHODCALLTYPE CompileFile(LPWSTR FileName, LPWSTR ServerAndNamespace, LPWSTR User,
                                          LPWSTR Authority, LPWSTR Password, LONG lOptionFlags,
                                          LONG lClassFlags, LONG lInstanceFlags,
                                          WBEM_COMPILE_STATUS_INFO* pInfo) override;
    HRESULT STDMETHODCALLTYPE CompileBuffer(long BuffSize, BYTE* pBuffer, LPWSTR ServerAndNamespace,
                                            LPWSTR User, LPWSTR Authority, LPWSTR Password, LONG lOptionFlags,
                                            LONG lClassFlags, LONG lInstanceFlags,
                                            WBEM_COMPILE_STATUS_INFO* pInfo) override;
    HRESULT STDMETHODCALLTYPE CreateBMOF(LPWSTR TextFileName, LPWSTR BMOFFileName, LPWSTR ServerAndNamespace,
                                         LONG lOptionFlags, LONG lClassFlags, LONG lInstanceFlags,
                                         WBEM_COMPILE_STATUS_INFO* pInfo) override;

    HRESULT STDMETHODCALLTYPE SetProgress(IMofProgress* progress) override;

 private:
    template <typename Object, typename... Arguments>
    friend CComPtr<Object> MakeCom(Arguments&&... arguments);

    MofCompiler() = default;
    ~MofCompiler() override = default;

    CComPtr<IMofProgress> progress_;
};

}  // namespace service
