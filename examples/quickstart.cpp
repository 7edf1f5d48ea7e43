// Creates a retention policy, changes it, and deletes it again.
#include <clocale>
#include <cstdio>

#include <objbase.h>

#include "utility/management/mgmt.h"

int main() {
    std::setlocale(LC_ALL, "");
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    MgmtInitialize(L"\\\\.\\root\\Vantrel\\Halvenor");

    CMgmtObject created(L"RetentionPolicy", L"quickstart", nullptr);
    created.SetPropertyValue(L"INSTANCE_ID", L"quickstart");
    created.SetPropertyValue(L"DisplayName", L"Created by the quickstart");
    created.SetPropertyValue(L"KeepDays", 30);
    created.SetPropertyValue(L"Enabled", true);
    if (!created.Put(true)) return std::fputs("The policy cannot be created.\n", stderr), 1;

    CMgmtObject policy(L"RetentionPolicy", L"quickstart", nullptr);
    if (!policy.Get()) return std::fputs("The policy cannot be read.\n", stderr), 1;
    policy.SetPropertyValue(L"KeepDays", 90);
    if (!policy.Put(false)) return std::fputs("The policy cannot be changed.\n", stderr), 1;

    std::printf("%ls is kept for %d days\n", policy.GetPropertyValue(L"DisplayName")->bstrVal,
                policy.GetPropertyValue(L"KeepDays")->intVal);
    return policy.DeleteInstance() ? 0 : 1;
}
