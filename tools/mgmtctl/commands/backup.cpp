#include <filesystem>
#include <iostream>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/store_report.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {

void Backup(const Arguments& arguments) {
    const std::string attempt = "no backup was made";
    const CComPtr<IMgmtStore> store = OpenStore(attempt);
    StoreReport report("copied", "bytes", {});
    const HRESULT result = store->Backup(Wide(arguments.output).c_str(), &report);
    report.End();
    Check(result, attempt);
    std::error_code ignored;
    const auto bytes =
        std::filesystem::file_size(std::filesystem::path(arguments.output) / "data.mdb", ignored);
    if (arguments.is_json) return PrintJson({{"path", arguments.output}, {"bytes", bytes}});
    std::cout << "the store was copied to " << Printable(arguments.output) << ", " << Grouped(bytes)
              << " bytes\n";
}

}  // namespace mgmtctl
