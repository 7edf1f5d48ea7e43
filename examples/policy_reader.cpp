// Reads a retention policy over and over while other processes write it, and checks each time that what it
// reads is one whole write (see policy_writer.cpp).
//
//   policy_reader ID COUNT
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include <objbase.h>

#include "utility/management/mgmt.h"

namespace {

struct Tally {
    int missing = 0;
    int torn = 0;
    std::set<std::wstring> states;
};

void ReadOnce(const wchar_t* id, Tally& tally) {
    CMgmtObject policy(L"RetentionPolicy", id, nullptr);
    if (!policy.Get()) {
        ++tally.missing;
        return;
    }
    const _variant_t& days = *policy.GetPropertyValue(L"KeepDays");
    const _variant_t& note = *policy.GetPropertyValue(L"Note");
    const std::wstring text = note.vt == VT_BSTR ? note.bstrVal : L"";
    if (!text.starts_with(std::to_wstring(days.lVal) + L" by ")) ++tally.torn;
    tally.states.insert(text);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: policy_reader ID COUNT\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return EXIT_FAILURE;

    const _bstr_t id = argv[1];
    const int count = std::atoi(argv[2]);
    Tally tally;
    for (int i = 0; i < count; ++i)
        ReadOnce(id, tally);
    std::printf("reader: %d reads, %zu different states, %d half-written, %d missing\n", count,
                tally.states.size(), tally.torn, tally.missing);
    MgmtUninitialize();
    CoUninitialize();
    return tally.torn == 0 && tally.missing == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
