#include "tools/mgmtctl/changes.h"

#include <algorithm>
#include <utility>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"
#include "tools/mgmtctl/values.h"

namespace mgmtctl {
namespace {

Change ReadChange(const ClassDeclaration& declaration, const Arguments::Assignment& assignment) {
    const DeclaredProperty* const property = declaration.Find(Wide(assignment.name));
    if (property == nullptr) {
        throw OperationFailure(
            "the class " + declaration.summary.name + " has no property " + assignment.name,
            "\"mgmtctl describe " + declaration.summary.name + "\" lists its properties.");
    }
    if (EqualNames(property->name, KEY)) {
        throw UsageFailure(
            "INSTANCE_ID is the key and cannot be changed: create another instance and delete this one");
    }
    return {property->name, ReadValue(*property, assignment.value), !IsNull(property->value)};
}

}  // namespace

ClassDeclaration ReadClassWithId(const std::string& name) {
    ClassDeclaration declaration = ReadClass(name);
    if (declaration.Find(KEY) != nullptr) return declaration;
    throw OperationFailure(
        "the class " + declaration.summary.name + " has no INSTANCE_ID to name an instance by",
        "Instances of such classes are made and changed by importing them.");
}

std::vector<Change> ReadChanges(const ClassDeclaration& declaration,
                                const std::vector<Arguments::Assignment>& assignments) {
    std::vector<Change> changes;
    for (const Arguments::Assignment& assignment : assignments) {
        Change change = ReadChange(declaration, assignment);
        const auto is_same = [&](const Change& other) { return EqualNames(other.name, change.name); };
        if (std::any_of(changes.begin(), changes.end(), is_same))
            throw UsageFailure(assignment.name + " is given twice");
        changes.push_back(std::move(change));
    }
    return changes;
}

bool HasNull(const std::vector<Change>& changes) {
    return std::any_of(changes.begin(), changes.end(), [](const Change& each) { return IsNull(each.value); });
}

bool HasNullForDefault(const std::vector<Change>& changes) {
    return std::any_of(changes.begin(), changes.end(),
                       [](const Change& each) { return IsNull(each.value) && each.has_default; });
}

HRESULT Spawn(const ClassDeclaration& declaration, const std::wstring& id, const std::vector<Change>& changes,
              CComPtr<IWbemClassObject>& instance) {
    HRESULT result = declaration.object->SpawnInstance(0, &instance);
    _variant_t key(id.c_str());
    if (SUCCEEDED(result)) result = instance->Put(KEY, 0, &key, 0);
    for (const Change& change : changes) {
        _variant_t value = change.value;
        if (SUCCEEDED(result)) result = instance->Put(change.name.c_str(), 0, &value, 0);
    }
    return result;
}

std::string AdviceForWrite(HRESULT code, const ClassDeclaration& declaration) {
    if (code != WBEM_E_TYPE_MISMATCH) return {};
    return "\"mgmtctl describe " + declaration.summary.name + "\" shows the type of each property.";
}

}  // namespace mgmtctl
