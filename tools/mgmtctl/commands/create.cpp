#include <iostream>

#include "tools/mgmtctl/changes.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/instance_path.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"
#include "utility/management/mgmt.h"

namespace mgmtctl {
namespace {

bool CreateThroughLibrary(const std::wstring& class_name, const std::wstring& id,
                          const std::vector<Change>& changes) {
    CMgmtObject source(class_name.c_str(), id.c_str(), nullptr);
    for (const Change& change : changes)
        source.SetPropertyValue(change.name, change.value);
    return CMgmtClass(class_name.c_str(), true).CreateInstance(source);
}

// The library leaves null values out, and the property would never have been set.
bool CreateWithNulls(const ClassDeclaration& declaration, const std::wstring& namespace_path,
                     const std::wstring& id, const std::vector<Change>& changes) {
    return SUCCEEDED(
        PutNew(*Connect(namespace_path), declaration, {{KEY, id.c_str()}}, changes, WBEM_FLAG_CREATE_ONLY));
}

}  // namespace

void Create(const Arguments& arguments) {
    const ClassDeclaration declaration = ReadClassWithId(arguments.class_name);
    const std::vector<Change> changes = ReadChanges(declaration, arguments.assignments);
    const std::wstring class_name = Wide(declaration.summary.name);
    const std::wstring id = Wide(arguments.id);
    const std::string path = Utf8(InstancePath(class_name, id));

    ForgetReason();
    const bool is_created = HasNull(changes)
                                ? CreateWithNulls(declaration, arguments.namespace_path, id, changes)
                                : CreateThroughLibrary(class_name, id, changes);
    if (!is_created) {
        Reason reason = TakeReason();
        std::string advice = reason.code == WBEM_E_ALREADY_EXISTS ? "\"mgmtctl set\" changes it."
                                                                  : AdviceForWrite(reason.code, declaration);
        throw OperationFailure("cannot create " + path, std::move(reason), std::move(advice));
    }
    if (arguments.is_json) return PrintJson({{"path", path}, {"result", "created"}});
    std::cout << Printable(path) << " created\n";
}

}  // namespace mgmtctl
