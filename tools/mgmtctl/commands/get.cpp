#include <comutil.h>

#include "tools/mgmtctl/class_declaration.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/instance_path.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/rendering.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {

// Through the service, because an object that the library hands out has its defaults as if they had been set.
void Get(const Arguments& arguments) {
    const std::wstring path = TargetPath(arguments);
    const std::string attempt = "cannot read " + Utf8(path);
    const CComPtr<IWbemServices> services = Connect(arguments.namespace_path);
    ForgetReason();
    CComPtr<IWbemClassObject> instance;
    Check(services->GetObject(_bstr_t(path.c_str()), 0, nullptr, &instance, nullptr), attempt);
    if (ValueOf(*instance, L"__GENUS").lVal != 2) throw ThatIsAClass(attempt, arguments.path);
    if (arguments.is_json) return PrintJson(ToJson(*instance));
    PrintInstance(*instance, arguments.listing.is_full ? Length::WHOLE : Length::SHORT);
}

}  // namespace mgmtctl
