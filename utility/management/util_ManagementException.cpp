#include "utility/management/util_ManagementException.h"

CManagementException::CManagementException(int code, const wchar_t* sourceFile, int line) noexcept
    : OS::CException(code, sourceFile, line) {}

CManagementException::CManagementException(const CManagementException& other) noexcept = default;
CManagementException& CManagementException::operator=(const CManagementException& other) noexcept = default;
CManagementException::~CManagementException() = default;
