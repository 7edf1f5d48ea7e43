#include <iostream>

#include "tools/mgmtctl/class_declaration.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/instance_stream.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr std::size_t AT_ONCE = 500;

}  // namespace

// The number alone, which is JSON as well.
void Count(const Arguments& arguments) {
    const std::wstring class_name = Wide(ReadClass(arguments.class_name).summary.name);
    const CComPtr<IWbemServices> services = Connect(arguments.namespace_path);
    InstanceStream stream =
        InstanceStream::OfClass(*services, class_name, Wide(arguments.where), arguments.is_shallow);
    std::size_t count = 0;
    for (auto some = stream.Next(AT_ONCE); !some.empty(); some = stream.Next(AT_ONCE))
        count += some.size();
    std::cout << count << '\n';
}

}  // namespace mgmtctl
