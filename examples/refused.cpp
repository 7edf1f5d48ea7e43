// Tries to store a text where a number belongs, and prints why that is refused.
#include <clocale>
#include <cstdio>

#include <atlbase.h>
#include <objbase.h>

#include "utility/management/mgmt.h"

int main() {
    std::setlocale(LC_ALL, "");
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    MgmtInitialize(L"\\\\.\\root\\Vantrel\\Halvenor");

    SetErrorInfo(0, nullptr);  // forget an older reason
    CMgmtObject policy(L"RetentionPolicy", L"mail", nullptr);
    policy.SetPropertyValue(L"KeepDays", L"many");
    if (policy.Put(false)) return 0;

    CComPtr<IErrorInfo> error;
    CComBSTR sentence;
    if (GetErrorInfo(0, &error) == S_OK) error->GetDescription(&sentence);
    std::printf("%ls\n", static_cast<BSTR>(sentence));
    return 1;
}
