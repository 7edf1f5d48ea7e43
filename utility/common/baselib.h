// OS::CException is the base of the product's exceptions: a code, and the place that threw.
//
//   throw OS::CException(-95002, L"" __FILE__, __LINE__);
//   ...
//   catch (const OS::CException& failure) { return failure.GetErrorCode(); }
//
// A thrown exception belongs to the thread that handles it; there is no shared state. Copying never fails and
// nothing is allocated before a message is asked for, so it can be thrown when memory is exhausted.
#pragma once

#include <string>

#include "utility/common/mgmt_export.h"

namespace OS {

using x_wstring = std::wstring;

class MGMT_API CException {
 public:
    // `sourceFile` is not copied: it must live as long as the exception and its copies, as the widened
    // source-file macro does. It may be null.
    CException(int code, const wchar_t* sourceFile, int line) noexcept;
    CException(const CException& other) noexcept;
    CException& operator=(const CException& other) noexcept;
    virtual ~CException();

    // The code given at construction.
    virtual int GetErrorCode() const;

    // One sentence with the code. Throws std::bad_alloc when the text cannot be allocated.
    virtual x_wstring GetErrorMsg();

    // The same with the file's name (without its folders) and the line of the throw. Throws as GetErrorMsg.
    virtual x_wstring GetErrorMsgEx();

 private:
    int m_Code;
    const wchar_t* m_SourceFile;
    int m_Line;
};

}  // namespace OS
