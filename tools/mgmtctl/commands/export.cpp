#include <iostream>
#include <optional>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/mof_export.h"
#include "tools/mgmtctl/output.h"
#include "tools/mgmtctl/output_file.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

MofExportOptions OptionsOf(const Arguments& arguments) {
    MofExportOptions options;
    for (const std::string& name : arguments.class_names)
        options.classes.push_back(Wide(name));
    options.has_instances = arguments.has_instances;
    options.is_recursive = arguments.is_recursive;
    return options;
}

void ExportToOutput(const Arguments& arguments) {
    MofExport exported(OptionsOf(arguments), [](std::string_view mof) {
        if (!std::cout.write(mof.data(), static_cast<std::streamsize>(mof.size()))) FlushOutput();
    });
    exported.Write(arguments.namespace_path);
}

void ExportToFile(const Arguments& arguments) {
    OutputFile file(arguments.output);
    MofExport exported(OptionsOf(arguments), [&](std::string_view mof) { file.Write(mof); });
    exported.Write(arguments.namespace_path);
    file.Commit();
    if (arguments.is_json) {
        return PrintJson({{"file", arguments.output},
                          {"classes", exported.CountClasses()},
                          {"instances", exported.CountInstances()}});
    }
    std::cout << Grouped(exported.CountClasses()) << (exported.CountClasses() == 1 ? " class" : " classes")
              << " and " << Grouped(exported.CountInstances())
              << (exported.CountInstances() == 1 ? " instance" : " instances") << " written to "
              << Printable(arguments.output) << '\n';
}

}  // namespace

void Export(const Arguments& arguments) {
    arguments.output.empty() ? ExportToOutput(arguments) : ExportToFile(arguments);
}

}  // namespace mgmtctl
