#include "service/com/system_properties.h"

#include <algorithm>
#include <array>

#include "service/com/class_object.h"
#include "service/model/object_path.h"
#include "service/model/text.h"

namespace service {
namespace {

enum Index : size_t {
    kGenus,
    kClass,
    kSuperclass,
    kDynasty,
    kRelpath,
    kPropertyCount,
    kDerivation,
    kServer,
    kNamespace,
    kPath,
};

// The values of __GENUS.
constexpr int64_t kGenusClass = 1;
constexpr int64_t kGenusInstance = 2;

std::array<SystemProperty, kSystemPropertyCount> MakeTable() {
    const PropertyType text{CimType::kString, false, 0, {}};
    const PropertyType number{CimType::kSint32, false, 0, {}};
    const PropertyType texts{CimType::kString, true, 0, {}};
    return {{{L"__GENUS", number},
             {L"__CLASS", text},
             {L"__SUPERCLASS", text},
             {L"__DYNASTY", text},
             {L"__RELPATH", text},
             {L"__PROPERTY_COUNT", number},
             {L"__DERIVATION", texts},
             {L"__SERVER", text},
             {L"__NAMESPACE", text},
             {L"__PATH", text}}};
}

const std::array<SystemProperty, kSystemPropertyCount>& Table() {
    static const auto table = MakeTable();
    return table;
}

// The names are ASCII, in capitals.
wchar_t ToUpperAscii(wchar_t c) noexcept {
    return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}

Value TextOrNull(std::string text) {
    return text.empty() ? Value() : Value(std::move(text));
}

// Null for an instance whose keys are not set yet, and for a class that has no name yet.
Value RelativePath(const ClassObject& object) {
    if (object.IsClass()) return TextOrNull(object.AsClass().declaration.name);
    const ClassDefinition& definition = *object.Definition();
    if (definition.Keys().empty() && !definition.IsSingleton()) return {};
    Result<std::string> path = RelativePathOf(object.AsInstance());
    return path.ok() ? Value(std::move(*path)) : Value();
}

Value FullPath(const ClassObject& object) {
    const Value relative = RelativePath(object);
    if (IsNull(relative) || !object.connection()) return {};
    const Connection& connection = *object.connection();
    return "\\\\" + connection.server + "\\" + connection.space.path + ":" + std::get<std::string>(relative);
}

}  // namespace

const SystemProperty& SystemPropertyAt(size_t index) noexcept {
    return Table()[index];
}

std::optional<size_t> FindSystemProperty(std::wstring_view name) {
    if (!name.starts_with(L"__")) return std::nullopt;
    const auto& table = Table();
    const auto found = std::find_if(table.begin(), table.end(), [&](const SystemProperty& each) {
        return std::equal(each.name.begin(), each.name.end(), name.begin(), name.end(),
                          [](wchar_t upper, wchar_t c) { return upper == ToUpperAscii(c); });
    });
    if (found == table.end()) return std::nullopt;
    return static_cast<size_t>(found - table.begin());
}

Result<Value> ReadSystemProperty(const ClassObject& object, size_t index) {
    const ClassDefinition& definition = *object.Definition();
    const ClassPtr& superclass = definition.Superclass();
    switch (index) {
        case kGenus:
            return Value(object.IsClass() ? kGenusClass : kGenusInstance);
        case kClass:
            return object.IsClass() ? TextOrNull(object.AsClass().declaration.name)
                                    : Value(definition.Name());
        case kSuperclass:
            return superclass ? Value(superclass->Name()) : Value();
        case kDynasty:
            return superclass || !object.IsClass() ? Value(definition.DynastyName())
                                                   : TextOrNull(object.AsClass().declaration.name);
        case kRelpath:
            return RelativePath(object);
        case kPropertyCount:
            return Value(static_cast<int64_t>(definition.Properties().size()));
        case kDerivation: {
            Array names;
            for (std::string& name : definition.Derivation())
                names.emplace_back(std::move(name));
            return Value(std::move(names));
        }
        case kServer:
            return object.connection() ? Value(object.connection()->server) : Value();
        case kNamespace:
            return object.connection() ? Value(object.connection()->space.path) : Value();
        case kPath:
            return FullPath(object);
        default:
            return Status(WBEM_E_NOT_FOUND, "there is no such system property");
    }
}

}  // namespace service
