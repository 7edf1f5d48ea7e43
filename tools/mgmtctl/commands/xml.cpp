#include <iostream>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/instance_path.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/text.h"
#include "utility/management/mgmt.h"

namespace mgmtctl {

void ShowXml(const Arguments& arguments) {
    const std::wstring path = TargetPath(arguments);
    ForgetReason();
    CMgmtObject object(path.c_str());
    if (!object.Get()) throw OperationFailure("cannot read " + Utf8(path), TakeReason());
    const _bstr_t xml = object.GetXML();
    if (xml.length() == 0) throw OperationFailure("cannot show " + Utf8(path) + " as XML", TakeReason());

    const std::string text = Utf8(std::wstring_view(xml, xml.length()));
    if (arguments.is_json) return PrintJson({{"path", Utf8(path)}, {"xml", text}});
    std::cout << text << (text.ends_with('\n') ? "" : "\n");
}

}  // namespace mgmtctl
