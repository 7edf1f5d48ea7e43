// Writes a retention policy over and over: the busy process of the demonstration.
//
//   policy_writer ID NAME COUNT     COUNT writes; 0 writes until the process is ended
//
// Each write sets KeepDays to a number and Note to "<number> by <NAME>", together: a reader that ever sees
// two numbers has seen half a write.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <objbase.h>

#include "utility/management/mgmt.h"

namespace {

// A process that is asked to end stops between two writes.
std::atomic<bool> is_asked_to_end{false};

bool WriteOnce(const wchar_t* id, const std::wstring& name, int number) {
    CMgmtObject policy(L"RetentionPolicy", id, nullptr);
    policy.SetPropertyValue(L"INSTANCE_ID", id);
    policy.SetPropertyValue(L"KeepDays", number);
    policy.SetPropertyValue(L"Note", (std::to_wstring(number) + L" by " + name).c_str());
    return policy.Put(true);
}

// How many writes were refused.
int WriteAll(const wchar_t* id, const char* name, int count) {
    const std::wstring wide_name = static_cast<const wchar_t*>(_bstr_t(name));
    int refused = 0;
    int number = 0;
    while ((count == 0 || number < count) && !is_asked_to_end) {
        if (!WriteOnce(id, wide_name, ++number)) ++refused;
    }
    std::printf("writer %s: %d writes, %d refused\n", name, number, refused);
    return refused;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: policy_writer ID NAME COUNT\n");
        return 2;
    }
    std::signal(SIGTERM, [](int) { is_asked_to_end = true; });
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return EXIT_FAILURE;

    const _bstr_t id = argv[1];
    const int refused = WriteAll(id, argv[2], std::atoi(argv[3]));
    MgmtUninitialize();
    CoUninitialize();
    return refused == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
