#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/listing.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {

void List(const Arguments& arguments) {
    const ClassDeclaration declaration = ReadClass(arguments.class_name);
    const std::wstring class_name = Wide(declaration.summary.name);
    const CComPtr<IWbemServices> services = Connect(arguments.namespace_path);
    const bool has_subclasses = !arguments.is_shallow && HasSubclasses(*services, class_name);
    InstanceStream stream =
        InstanceStream::OfClass(*services, class_name, Wide(arguments.where), arguments.is_shallow);
    PrintListing(stream, declaration, has_subclasses, arguments);
}

}  // namespace mgmtctl
