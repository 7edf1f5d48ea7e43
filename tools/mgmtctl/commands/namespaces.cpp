#include <iostream>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr const wchar_t* ROOT = L"\\\\.\\root";

void Collect(const std::wstring& path, std::vector<std::string>& paths) {
    paths.push_back(Utf8(path));
    const CComPtr<IWbemServices> services = Connect(path);
    ForEach(*Instances(*services, L"__Namespace"),
            [&](IWbemClassObject& below) { Collect(path + L"\\" + Wide(TextOf(below, L"Name")), paths); });
}

}  // namespace

void ListNamespaces(const Arguments& arguments) {
    std::vector<std::string> paths;
    Collect(arguments.is_namespace_given ? arguments.namespace_path : ROOT, paths);
    if (arguments.is_json) return PrintJson(paths);
    for (const std::string& path : paths)
        std::cout << Printable(path) << '\n';
}

}  // namespace mgmtctl
