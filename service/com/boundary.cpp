#include "service/com/boundary.h"

#include <exception>

#include "service/model/text.h"

namespace service {

HRESULT Report(const Status& fault) noexcept {
    try {
        ReportError(fault.code(), ToWideLossy(fault.reason()).c_str());
    } catch (...) {
        ReportError(fault.code(), nullptr);
    }
    return fault.code();
}

HRESULT ReportCurrentException() noexcept {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        ReportError(WBEM_E_OUT_OF_MEMORY, L"the management service ran out of memory");
        return WBEM_E_OUT_OF_MEMORY;
    } catch (const std::exception& fault) {
        return Report(
            Status(WBEM_E_UNEXPECTED, std::string("the management service failed: ") + fault.what()));
    } catch (...) {
        return Report(Status(WBEM_E_UNEXPECTED, "the management service failed"));
    }
}

Status NullArgument(const char* what) {
    return {WBEM_E_INVALID_PARAMETER, std::string(what) + " must not be null"};
}

Status CheckNoFlags(long flags) {
    return flags == 0 ? Status() : Status(WBEM_E_INVALID_PARAMETER, "the flags must be 0");
}

Result<std::string> TakeText(std::wstring_view text, const char* what) {
    std::string utf8;
    if (AppendUtf8(text, utf8)) return utf8;
    return Status(
        WBEM_E_INVALID_PARAMETER,
        std::string(what) + " has no UTF-8 form: it holds a lone surrogate or a value above 0x10FFFF");
}

Result<std::string> TakeText(BSTR text, const char* what) {
    return TakeText(std::wstring_view(text ? text : L"", SysStringLen(text)), what);
}

}  // namespace service
