#include "tools/mgmtctl/instance_keys.h"

#include <algorithm>
#include <string_view>

#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

bool IsQuote(wchar_t unit) {
    return unit == L'"' || unit == L'\'';
}

// Moves `rest` behind the value that it begins with. A backslash counts only in front of another or a quote.
std::wstring TakeValue(std::wstring_view& rest) {
    std::wstring value;
    if (rest.empty() || !IsQuote(rest.front())) {
        value = rest.substr(0, rest.find(L','));
        rest.remove_prefix(value.size());
        return value;
    }
    std::size_t end = 1;
    for (; end < rest.size() && rest[end] != rest.front(); ++end) {
        const bool is_escape =
            rest[end] == L'\\' && end + 1 < rest.size() && (rest[end + 1] == L'\\' || IsQuote(rest[end + 1]));
        if (is_escape) ++end;
        value += rest[end];
    }
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return value;
}

const DeclaredProperty* OnlyKey(const ClassDeclaration& declaration) {
    const auto& properties = declaration.properties;
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [](const DeclaredProperty& each) { return each.is_key; });
    return found == properties.end() ? nullptr : &*found;
}

// Texts and numbers travel as text.
Change KeyOf(const ClassDeclaration& declaration, const std::wstring& name, const std::wstring& value) {
    const DeclaredProperty* const property = name.empty() ? OnlyKey(declaration) : declaration.Find(name);
    const bool is_boolean = property != nullptr && property->type == CIM_BOOLEAN;
    return {property != nullptr ? property->name : name,
            is_boolean ? _variant_t(EqualNames(value, L"true")) : _variant_t(value.c_str())};
}

}  // namespace

std::vector<Change> ReadKeys(const ClassDeclaration& declaration, const std::wstring& path) {
    std::vector<Change> keys;
    std::wstring_view rest = path;
    rest.remove_prefix(std::min(rest.find_first_of(L".="), rest.size()));
    if (rest == L"=@") return keys;
    while (!rest.empty()) {
        // In front of a name stands a point or a comma; Class=value has none.
        if (rest.front() != L'=') rest.remove_prefix(1);
        const std::wstring name(rest.substr(0, rest.find(L'=')));
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        const std::wstring value = TakeValue(rest);
        keys.push_back(KeyOf(declaration, name, value));
    }
    return keys;
}

}  // namespace mgmtctl
