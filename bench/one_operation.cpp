// one_operation get|put|bag COUNT: does one thing COUNT times, for a count of system calls or a profile.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <objbase.h>

#include "bench/policy_data.h"
#include "utility/management/mgmt.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: one_operation get|put|bag COUNT\n");
        return 2;
    }
    const bool is_put = std::strcmp(argv[1], "put") == 0;
    const bool is_bag = std::strcmp(argv[1], "bag") == 0;
    const int count = std::atoi(argv[2]);
    const bench::TemporaryDirectory directory;
    bench::PrepareStore(directory.path());
    MgmtInitialize(bench::kNamespace);
    int failures = 0;
    for (int i = 0; i < count; ++i) {
        CMgmtObject object(bench::kClass, bench::IdOf(i % bench::kInstances).c_str(), nullptr);
        if (is_bag) {
            object.SetPropertyValue(L"KeepDays", 5L);
            continue;
        }
        if (!object.Get()) ++failures;
        if (!is_put) continue;
        object.SetPropertyValue(L"Priority", i);
        if (!object.Put(false)) ++failures;
    }
    MgmtUninitialize();
    return failures == 0 ? 0 : 1;
}
