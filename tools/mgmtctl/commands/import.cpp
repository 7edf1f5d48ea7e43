#include <iostream>

#include <atlbase.h>
#include <comutil.h>
#include <mofprogress.h>
#include <wbemidl.h>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/import_progress.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

// The compiler takes several files in one argument, a line each.
std::wstring JoinedNames(const std::vector<std::string>& files) {
    std::string names;
    for (const std::string& file : files) {
        if (file.empty() || file.find('\n') != std::string::npos)
            throw UsageFailure("the name of a file must not be empty or hold a line end");
        if (!names.empty()) names += '\n';
        names += file;
    }
    return Wide(names);
}

HRESULT Compile(IMofCompiler& compiler, wchar_t* names, wchar_t* space, const Arguments& arguments,
                WBEM_COMPILE_STATUS_INFO& info) {
    ImportProgress progress(arguments.is_check);
    const LONG options = arguments.is_check ? WBEM_FLAG_CHECK_ONLY : 0;
    const LONG class_flags = arguments.is_forced ? WBEM_FLAG_UPDATE_FORCE_MODE : WBEM_FLAG_CREATE_OR_UPDATE;
    CComPtr<IMofProgressSource> source;
    if (SUCCEEDED(compiler.QueryInterface(IID_PPV_ARGS(&source.p)))) source->SetProgress(&progress);
    const HRESULT result = compiler.CompileFile(names, space, nullptr, nullptr, nullptr, options, class_flags,
                                                WBEM_FLAG_CREATE_OR_UPDATE, &info);
    if (source != nullptr) source->SetProgress(nullptr);
    return result;
}

// The phase is told where a file is at fault; one that may not be read says nothing of the store.
std::string AdviceFor(const WBEM_COMPILE_STATUS_INFO& info) {
    constexpr long kStorePhase = 3;
    const bool is_of_file = info.lPhaseError != 0 && info.lPhaseError != kStorePhase;
    return is_of_file && info.hRes == WBEM_E_ACCESS_DENIED
               ? "Check who may read the file, and enter the folders that it lies in."
               : "";
}

void Print(const Arguments& arguments, long declarations) {
    if (arguments.is_json) {
        PrintJson(
            {{"files", arguments.files}, {"declarations", declarations}, {"stored", !arguments.is_check}});
        return;
    }
    const std::size_t files = arguments.files.size();
    std::cout << declarations << (declarations == 1 ? " declaration" : " declarations") << " from " << files
              << (files == 1 ? " file" : " files") << (arguments.is_check ? " checked" : " stored") << '\n';
}

}  // namespace

void Import(const Arguments& arguments) {
    const std::string attempt = arguments.is_check ? "the check failed" : "nothing was imported";
    ForgetReason();
    CComPtr<IMofCompiler> compiler;
    Check(compiler.CoCreateInstance(CLSID_MofCompiler), attempt);

    WBEM_COMPILE_STATUS_INFO info = {};
    _bstr_t names = JoinedNames(arguments.files).c_str();
    _bstr_t space = arguments.namespace_path.c_str();
    const HRESULT result = Compile(*compiler, names, space, arguments, info);
    if (FAILED(result)) throw OperationFailure(attempt, TakeReason(result), AdviceFor(info));
    Print(arguments, info.ObjectNum);
}

}  // namespace mgmtctl
