#include "utility/common/baselib.h"

#include "utility/common/source_path.h"

namespace OS {

CException::CException(int code, const wchar_t* sourceFile, int line) noexcept
    : m_Code(code), m_SourceFile(sourceFile != nullptr ? sourceFile : L""), m_Line(line) {}

CException::CException(const CException& other) noexcept = default;
CException& CException::operator=(const CException& other) noexcept = default;
CException::~CException() = default;

int CException::GetErrorCode() const {
    return m_Code;
}

x_wstring CException::GetErrorMsg() {
    return L"error " + std::to_wstring(m_Code);
}

x_wstring CException::GetErrorMsgEx() {
    x_wstring message = GetErrorMsg();
    message.append(L" at ").append(FileNameOf(m_SourceFile)).append(L":").append(std::to_wstring(m_Line));
    return message;
}

}  // namespace OS
