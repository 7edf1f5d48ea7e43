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
    const bool is_unset = assignment.value == "unset";
    return {property->name, ReadValue(*property, is_unset ? "null" : assignment.value), is_unset};
}

}  // namespace

ClassDeclaration ReadClassWithId(const std::string& name) {
    ClassDeclaration declaration = ReadClass(name);
    if (declaration.Find(KEY) != nullptr) return declaration;
    throw OperationFailure(
        "the class " + declaration.summary.name + " has no INSTANCE_ID to name an instance by",
        "\"mgmtctl set PATH NAME=VALUE... --create\" makes and changes instances whose keys stand in the "
        "path.");
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

HRESULT Apply(const std::vector<Change>& changes, IWbemClassObject& instance) {
    for (const Change& change : changes) {
        _variant_t value = change.value;
        const wchar_t* const name = change.name.c_str();
        const HRESULT result = change.is_unset ? instance.Delete(name) : instance.Put(name, 0, &value, 0);
        if (FAILED(result)) return result;
    }
    return S_OK;
}

HRESULT PutNew(IWbemServices& services, const ClassDeclaration& declaration, const std::vector<Change>& keys,
               const std::vector<Change>& changes, long flags) {
    CComPtr<IWbemClassObject> instance;
    HRESULT result = declaration.object->SpawnInstance(0, &instance);
    if (SUCCEEDED(result)) result = Apply(keys, *instance);
    if (SUCCEEDED(result)) result = Apply(changes, *instance);
    return SUCCEEDED(result) ? services.PutInstance(instance, flags, nullptr, nullptr) : result;
}

std::string AdviceForWrite(HRESULT code, const ClassDeclaration& declaration) {
    if (code != WBEM_E_TYPE_MISMATCH) return {};
    return "\"mgmtctl describe " + declaration.summary.name + "\" shows the type of each property.";
}

}  // namespace mgmtctl
