#include <iostream>

#include "tools/mgmtctl/class_declaration.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/instance_path.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"
#include "utility/management/mgmt.h"

namespace mgmtctl {
namespace {

// The library cuts the path that it builds for a deletion at this length.
constexpr std::size_t LONGEST_LIBRARY_PATH = 255;

// The id is escaped here, because the library puts it into the path as it stands.
bool DeleteThroughLibrary(const std::wstring& class_name, const std::wstring& id) {
    CMgmtObject object(class_name.c_str(), EscapeId(id).c_str(), nullptr);
    return object.DeleteInstance();
}

bool DeleteByPath(const std::wstring& namespace_path, const std::wstring& path) {
    return SUCCEEDED(Connect(namespace_path)->DeleteInstance(_bstr_t(path.c_str()), 0, nullptr, nullptr));
}

}  // namespace

void Delete(const Arguments& arguments) {
    RefuseClass("cannot delete ", arguments.path);
    const std::wstring path = TargetPath(arguments);
    const bool is_short = arguments.path.empty() && path.size() <= LONGEST_LIBRARY_PATH;
    ForgetReason();
    const bool is_deleted = is_short ? DeleteThroughLibrary(Wide(arguments.class_name), Wide(arguments.id))
                                     : DeleteByPath(arguments.namespace_path, path);
    if (!is_deleted) throw OperationFailure("cannot delete " + Utf8(path), TakeReason());
    if (arguments.is_json) return PrintJson({{"path", Utf8(path)}, {"result", "deleted"}});
    std::cout << Printable(Utf8(path)) << " deleted\n";
}

}  // namespace mgmtctl
