// CManagementException is the one exception that the library throws of its own accord.
//
//   try { object.Get(); }
//   catch (const CManagementException& failure) { Report(failure.GetErrorCode()); }
//
// It carries one of the two codes below and nothing else; what the management service refuses is told by the
// results of the operations and never thrown. The exceptions of the string and variant wrappers and of the
// standard containers pass through the library unchanged. No shared state, so no rule for threads.
#pragma once

#include "utility/common/baselib.h"
#include "utility/common/mgmt_export.h"

// A handle's shared record is needed and cannot be allocated. Nothing has changed.
inline constexpr int MGMT_ERR_SHARED_DATA = -95002;
// A typed getter finds a value of another type. Nothing has changed.
inline constexpr int MGMT_ERR_VALUE_TYPE = -95006;

class MGMT_API CManagementException : public OS::CException {
 public:
    // `code` is one of the codes above; `sourceFile` and `line` name the throw statement. See OS::CException
    // for how long `sourceFile` must live.
    CManagementException(int code, const wchar_t* sourceFile, int line) noexcept;
    CManagementException(const CManagementException& other) noexcept;
    CManagementException& operator=(const CManagementException& other) noexcept;
    ~CManagementException() override;
};
