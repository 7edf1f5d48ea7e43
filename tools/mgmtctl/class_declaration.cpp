#include "tools/mgmtctl/class_declaration.h"

#include <algorithm>

#include "tools/mgmtctl/qualifiers.h"
#include "tools/mgmtctl/text.h"
#include "utility/management/mgmt.h"

namespace mgmtctl {
namespace {

std::string OriginOf(IWbemClassObject& object, const std::wstring& property) {
    CComBSTR origin;
    object.GetPropertyOrigin(property.c_str(), &origin);
    return Utf8(static_cast<BSTR>(origin));
}

DeclaredProperty Declare(IWbemClassObject& object, Property property) {
    const Qualifiers qualifiers = PropertyQualifiers(object, property.name);
    DeclaredProperty declared;
    static_cast<Property&>(declared) = std::move(property);
    declared.type_name = DeclaredTypeName(declared.type, qualifiers);
    declared.origin = OriginOf(object, declared.name);
    declared.description = TextQualifier(qualifiers, L"Description");
    declared.is_key = BooleanQualifier(qualifiers, L"key");
    return declared;
}

}  // namespace

ClassSummary SummaryOf(IWbemClassObject& class_object) {
    const Qualifiers qualifiers = ClassQualifiers(class_object);
    ClassSummary summary;
    summary.name = TextOf(class_object, L"__CLASS");
    summary.superclass = TextOf(class_object, L"__SUPERCLASS");
    summary.description = TextQualifier(qualifiers, L"Description");
    summary.is_abstract = BooleanQualifier(qualifiers, L"abstract");
    for (const Property& property : PropertiesOf(class_object)) {
        if (BooleanQualifier(PropertyQualifiers(class_object, property.name), L"key"))
            summary.keys.push_back(Utf8(property.name));
    }
    return summary;
}

const DeclaredProperty* ClassDeclaration::Find(const std::wstring& name) const {
    const auto found = std::find_if(properties.begin(), properties.end(), [&](const DeclaredProperty& each) {
        return EqualNames(each.name, name);
    });
    return found == properties.end() ? nullptr : &*found;
}

ClassDeclaration ReadClass(const std::string& name) {
    ForgetReason();
    CMgmtObject holder(Wide(name).c_str(), nullptr, nullptr);
    const std::string attempt = "cannot read the class " + name;
    if (!holder.Get()) throw OperationFailure(attempt, TakeReason());
    const _variant_t held = holder;

    ClassDeclaration declaration;
    declaration.object = ObjectOf(held);
    if (declaration.object == nullptr || ValueOf(*declaration.object, L"__GENUS").lVal != 1)
        throw OperationFailure(attempt + ": that is the path of an instance, not the name of a class");
    declaration.summary = SummaryOf(*declaration.object);
    for (Property& property : PropertiesOf(*declaration.object))
        declaration.properties.push_back(Declare(*declaration.object, std::move(property)));
    return declaration;
}

OperationFailure ThatIsAClass(const std::string& attempt, const std::string& path) {
    return OperationFailure(
        attempt + ": that is a class, not an instance",
        "Name an instance by its class and id; \"mgmtctl describe " + path + "\" shows the class.");
}

void RefuseClass(const std::string& attempt, const std::string& path) {
    if (path.empty() || path.find('=') != std::string::npos) return;
    ReadClass(path);
    throw ThatIsAClass(attempt + path, path);
}

}  // namespace mgmtctl
