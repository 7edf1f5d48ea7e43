#include <algorithm>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/listing.h"
#include "tools/mgmtctl/query_text.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& each) { return EqualNames(Wide(each), Wide(name)); });
}

std::vector<std::string> OnceEach(const std::vector<std::string>& names) {
    std::vector<std::string> once;
    for (const std::string& name : names) {
        if (!Contains(once, name)) once.push_back(name);
    }
    return once;
}

// The instances have no other properties than those that the query lists.
void CheckSort(const std::string& sort, const std::vector<std::string>& selected) {
    if (!sort.empty() && !selected.empty() && !Contains(selected, sort))
        throw UsageFailure("to sort by " + sort + " the query has to list it behind SELECT");
}

}  // namespace

void Query(const Arguments& arguments) {
    const CComPtr<IWbemServices> services = Connect(arguments.namespace_path);
    InstanceStream stream = InstanceStream::OfQuery(*services, Wide(arguments.query));

    const Selected selected = ReadSelect(arguments.query);
    CheckSort(arguments.listing.sort, selected.properties);
    const ClassDeclaration declaration = ReadClass(selected.class_name);
    const std::wstring class_name = Wide(declaration.summary.name);
    Arguments listed = arguments;
    listed.listing.properties = OnceEach(selected.properties);
    PrintListing(stream, declaration, HasSubclasses(*services, class_name), listed);
}

}  // namespace mgmtctl
