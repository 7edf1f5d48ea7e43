#include "tools/mgmtctl/instance_path.h"

#include "tools/mgmtctl/text.h"

namespace mgmtctl {

std::wstring EscapeId(const std::wstring& id) {
    std::wstring escaped;
    for (const wchar_t unit : id) {
        if (unit == L'\\' || unit == L'"') escaped += L'\\';
        escaped += unit;
    }
    return escaped;
}

std::wstring InstancePath(const std::wstring& class_name, const std::wstring& id) {
    return class_name + L".INSTANCE_ID=\"" + EscapeId(id) + L"\"";
}

std::wstring TargetPath(const Arguments& arguments) {
    if (!arguments.path.empty()) return Wide(arguments.path);
    return InstancePath(Wide(arguments.class_name), Wide(arguments.id));
}

std::string ClassOfPath(const std::string& path) {
    return path.substr(0, path.find_first_of(".="));
}

}  // namespace mgmtctl
