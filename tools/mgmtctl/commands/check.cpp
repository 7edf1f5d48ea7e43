#include <iostream>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/store_report.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

void PrintTable(const MgmtStoreCounts& counts) {
    const auto print = [](ULONGLONG count, const char* one, const char* many) {
        std::cout << Grouped(count) << ' ' << (count == 1 ? one : many);
    };
    print(counts.namespaces, "namespace, ", "namespaces, ");
    print(counts.classes, "class, ", "classes, ");
    print(counts.instances, "instance and ", "instances and ");
    print(counts.changes, "change read: ", "changes read: ");
    if (counts.findings == 0) {
        std::cout << "the store is sound\n";
    } else {
        print(counts.findings, "finding\n", "findings\n");
    }
}

}  // namespace

// Findings are printed as they are found; with --json they come with the counts.
void CheckStore(const Arguments& arguments) {
    std::vector<std::string> findings;
    const auto take = [&](const std::string& sentence) {
        if (arguments.is_json) {
            findings.push_back(sentence);
        } else {
            std::cout << Printable(sentence) << '\n' << std::flush;
        }
    };
    StoreReport report("checked", "records", take);
    const CComPtr<IMgmtStore> store = OpenStore("the store cannot be checked");
    MgmtStoreCounts counts = {};
    const HRESULT result = store->Check(&report, &counts);
    report.End();
    Check(result, "the store cannot be checked");
    if (arguments.is_json) {
        PrintJson({{"namespaces", counts.namespaces},
                   {"classes", counts.classes},
                   {"instances", counts.instances},
                   {"changes", counts.changes},
                   {"findings", findings}});
    } else {
        PrintTable(counts);
    }
    if (counts.findings != 0)
        throw OperationFailure(
            "the store is damaged",
            "Restore it from a backup (\"mgmtctl backup\" makes them). Where there is none, "
            "\"mgmtctl export --instances\" may save a part: it can stop in the middle, and "
            "leave out what cannot be read without saying so.");
}

}  // namespace mgmtctl
