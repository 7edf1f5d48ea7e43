#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/instance_path.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/rendering.h"
#include "tools/mgmtctl/text.h"
#include "utility/management/mgmt.h"

namespace mgmtctl {
namespace {

// With the names of what was never set, which null and a class's defaults would hide.
OrderedJson WithNeverSet(IWbemClassObject& instance) {
    OrderedJson names = OrderedJson::array();
    for (const std::wstring& name : NeverSet(instance))
        names.push_back(Utf8(name));
    OrderedJson json = ToJson(instance);
    json["__NEVER_SET"] = std::move(names);
    return json;
}

}  // namespace

void Get(const Arguments& arguments) {
    const std::wstring path = TargetPath(arguments);
    const std::string attempt = "cannot read " + Utf8(path);
    ForgetReason();
    CMgmtObject object(path.c_str());
    if (!object.Get()) throw OperationFailure(attempt, TakeReason());

    const _variant_t held = object;
    const CComPtr<IWbemClassObject> instance = ObjectOf(held);
    if (instance == nullptr) throw OperationFailure(attempt + ": the service returned no object");
    if (ValueOf(*instance, L"__GENUS").lVal != 2) {
        throw OperationFailure(attempt + ": that is a class, not an instance",
                               "Name an instance by its class and id; \"mgmtctl describe " + arguments.path +
                                   "\" shows the class.");
    }
    if (arguments.is_json)
        return PrintJson(arguments.listing.is_full ? WithNeverSet(*instance) : ToJson(*instance));
    PrintInstance(*instance, arguments.listing.is_full ? Length::WHOLE : Length::SHORT);
}

}  // namespace mgmtctl
