#include <algorithm>
#include <iostream>

#include "tools/mgmtctl/class_declaration.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/table.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

std::vector<ClassSummary> ReadSummaries(const Arguments& arguments) {
    std::vector<ClassSummary> summaries;
    const CComPtr<IWbemServices> services = Connect(arguments.namespace_path);
    ForEach(*Classes(*services, Wide(arguments.class_name)),
            [&](IWbemClassObject& object) { summaries.push_back(SummaryOf(object)); });
    std::sort(summaries.begin(), summaries.end(),
              [](const ClassSummary& left, const ClassSummary& right) { return left.name < right.name; });
    return summaries;
}

std::string Joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

void PrintAsJson(const std::vector<ClassSummary>& summaries) {
    OrderedJson list = OrderedJson::array();
    for (const ClassSummary& each : summaries) {
        list.push_back({{"name", each.name},
                        {"superclass", TextOrNull(each.superclass)},
                        {"abstract", each.is_abstract},
                        {"keys", each.keys},
                        {"description", TextOrNull(each.description)}});
    }
    PrintJson(list);
}

void PrintAsTable(const std::vector<ClassSummary>& summaries) {
    Table table({"Class", "Superclass", "Abstract", "Key", "Description"});
    for (const ClassSummary& each : summaries) {
        table.Add(
            {each.name, each.superclass, each.is_abstract ? "yes" : "", Joined(each.keys), each.description});
    }
    table.Print(std::cout);
}

}  // namespace

void ListClasses(const Arguments& arguments) {
    const std::vector<ClassSummary> summaries = ReadSummaries(arguments);
    arguments.is_json ? PrintAsJson(summaries) : PrintAsTable(summaries);
}

}  // namespace mgmtctl
