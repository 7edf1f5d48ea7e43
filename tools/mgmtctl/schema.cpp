#include "tools/mgmtctl/schema.h"

#include <algorithm>
#include <cwctype>
#include <utility>

#include "tools/mgmtctl/qualifiers.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

// Whether the class declares the property itself, and does not only inherit it.
bool IsLocal(IWbemClassObject& object, const std::wstring& property) {
    long flavor = 0;
    object.Get(property.c_str(), 0, nullptr, nullptr, &flavor);
    return flavor == WBEM_FLAVOR_ORIGIN_LOCAL;
}

void AddClassesOf(const VARIANT& value, std::vector<std::wstring>& names) {
    for (const _variant_t& element : ElementsOf(value))
        AddClassesOf(element, names);
    const CComPtr<IWbemClassObject> object = ObjectOf(value);
    if (object == nullptr) return;
    names.push_back(Wide(TextOf(*object, L"__CLASS")));
    for (const Property& property : PropertiesOf(*object)) {
        if (ElementType(property.type) == CIM_OBJECT) AddClassesOf(property.value, names);
    }
}

void AddClassesOfSignature(IWbemClassObject* signature, std::vector<std::wstring>& names) {
    if (signature == nullptr) return;
    for (const Property& property : PropertiesOf(*signature)) {
        std::string name = ClassOfType(property.type, PropertyQualifiers(*signature, property.name));
        if (!name.empty()) names.push_back(Wide(name));
    }
}

void AddClassesOfMethods(IWbemClassObject& object, std::vector<std::wstring>& names) {
    if (FAILED(object.BeginMethodEnumeration(WBEM_FLAG_LOCAL_ONLY))) return;
    while (true) {
        CComPtr<IWbemClassObject> in;
        CComPtr<IWbemClassObject> out;
        if (object.NextMethod(0, nullptr, &in, &out) != WBEM_S_NO_ERROR) break;
        AddClassesOfSignature(in, names);
        AddClassesOfSignature(out, names);
    }
    object.EndMethodEnumeration();
}

}  // namespace

std::wstring Schema::Fold(const std::wstring& name) {
    std::wstring folded = name;
    std::transform(folded.begin(), folded.end(), folded.begin(),
                   [](wchar_t unit) { return static_cast<wchar_t>(std::towlower(std::towupper(unit))); });
    return folded;
}

Schema Schema::Read(IWbemServices& services) {
    Schema schema;
    ForEach(*Classes(services, L""), [&](IWbemClassObject& object) { schema.Add(object); });
    for (const auto& [folded, each] : schema.classes_)
        schema.subclasses_[Fold(each.superclass)].push_back(folded);
    return schema;
}

void Schema::Add(IWbemClassObject& object) {
    SchemaClass added;
    added.name = Wide(TextOf(object, L"__CLASS"));
    added.superclass = Wide(TextOf(object, L"__SUPERCLASS"));
    added.object = &object;
    for (const Property& property : PropertiesOf(object)) {
        const bool is_object = ElementType(property.type) == CIM_OBJECT;
        if (!is_object && ElementType(property.type) != CIM_REFERENCE) continue;
        added.has_objects = added.has_objects || is_object;
        if (!IsLocal(object, property.name)) continue;
        AddClassesOf(property.value, added.needs);
        std::string target = ClassOfType(property.type, PropertyQualifiers(object, property.name));
        if (!target.empty()) added.links.push_back({property.name, Wide(target), !is_object});
    }
    AddClassesOfMethods(object, added.needs);
    classes_[Fold(added.name)] = std::move(added);
}

const SchemaClass* Schema::Find(const std::wstring& name) const {
    const auto found = classes_.find(Fold(name));
    return found == classes_.end() ? nullptr : &found->second;
}

Schema::Names Schema::All() const {
    Names names;
    for (const auto& each : classes_)
        names.insert(each.first);
    return names;
}

Schema::Names Schema::WithSubclasses(const std::vector<std::wstring>& names) const {
    Names found;
    std::vector<std::wstring> pending = names;
    while (!pending.empty()) {
        const std::wstring folded = Fold(pending.back());
        pending.pop_back();
        if (!classes_.contains(folded) || !found.insert(folded).second) continue;
        const auto below = subclasses_.find(folded);
        if (below != subclasses_.end())
            pending.insert(pending.end(), below->second.begin(), below->second.end());
    }
    return found;
}

Schema::Names Schema::WithNeeds(Names names) const {
    std::vector<std::wstring> pending(names.begin(), names.end());
    const auto need = [&](const std::wstring& name) {
        std::wstring folded = Fold(name);
        if (classes_.contains(folded) && names.insert(folded).second) pending.push_back(std::move(folded));
    };
    while (!pending.empty()) {
        const SchemaClass& each = classes_.at(pending.back());
        pending.pop_back();
        need(each.superclass);
        for (const ClassLink& link : each.links)
            need(link.target);
        for (const std::wstring& name : each.needs)
            need(name);
    }
    return names;
}

std::vector<const SchemaClass*> Schema::InOrder(const Names& names) const {
    std::vector<const SchemaClass*> ordered;
    Append({}, names, ordered);
    return ordered;
}

// As deep as classes derive from one another, which the service bounds.
void Schema::Append(const std::wstring& superclass, const Names& names,
                    std::vector<const SchemaClass*>& ordered) const {
    const auto below = subclasses_.find(superclass);
    if (below == subclasses_.end()) return;
    for (const std::wstring& folded : below->second) {
        if (names.contains(folded)) ordered.push_back(&classes_.at(folded));
        Append(folded, names, ordered);
    }
}

}  // namespace mgmtctl
