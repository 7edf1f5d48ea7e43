#include "tools/mgmtctl/failure.h"

#include <cstdio>
#include <utility>

#include <atlbase.h>
#include <errorinfo.h>
#include <wbemstatus.h>

#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

std::string Hexadecimal(HRESULT code) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "0x%08x", static_cast<unsigned>(code));
    return digits;
}

std::string AdviceFor(HRESULT code) {
    switch (code) {
        case WBEM_E_INVALID_NAMESPACE:
            return "\"mgmtctl namespaces\" lists the namespaces; \"mgmtctl import\" makes those that a "
                   "schema "
                   "names.";
        case WBEM_E_INVALID_CLASS:
            return "\"mgmtctl classes\" lists the classes of the namespace; --namespace names another one.";
        case WBEM_E_INVALID_OBJECT_PATH:
            return "A path reads Class.INSTANCE_ID=\"id\", with \\\" for a quote and \\\\ for a backslash in "
                   "the id.";
        case WBEM_E_ACCESS_DENIED:
            return "The environment variable MGMT_STORE names the folder of the store; check who may use it.";
        default:
            return {};
    }
}

std::string SentenceOf(const Reason& reason) {
    return reason.sentence.empty() ? "no reason was given (code " + Hexadecimal(reason.code) + ")"
                                   : reason.sentence;
}

}  // namespace

Reason TakeReason(HRESULT code) {
    Reason reason{code, {}};
    CComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, &info) != S_OK) return reason;

    CComBSTR sentence;
    if (SUCCEEDED(info->GetDescription(&sentence))) reason.sentence = Utf8(static_cast<BSTR>(sentence));
    CComPtr<IErrorCode> coded;
    if (SUCCEEDED(info.QueryInterface(&coded))) coded->GetCode(&reason.code);
    return reason;
}

void ForgetReason() {
    SetErrorInfo(0, nullptr);
}

OperationFailure::OperationFailure(const std::string& attempt, Reason reason, std::string advice)
    : std::runtime_error(attempt + ": " + SentenceOf(reason)),
      reason_(std::move(reason)),
      advice_(advice.empty() ? AdviceFor(reason_.code) : std::move(advice)) {}

OperationFailure::OperationFailure(const std::string& sentence, std::string advice)
    : std::runtime_error(sentence), advice_(std::move(advice)) {}

void Check(HRESULT result, const std::string& attempt) {
    if (FAILED(result)) throw OperationFailure(attempt, TakeReason(result));
}

}  // namespace mgmtctl
