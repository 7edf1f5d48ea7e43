// The properties that a command line gives to an instance: NAME=VALUE, read by the types of its class. The
// text "unset" puts a property back to never having been set.
//
//   const std::vector<Change> changes = ReadChanges(declaration, arguments.assignments);
//   Check(Apply(changes, *instance), "cannot change the instance");
//
// Plain values.
#pragma once

#include <string>
#include <vector>

#include "tools/mgmtctl/arguments.h"
#include "tools/mgmtctl/class_declaration.h"

namespace mgmtctl {

// The property that names an instance within its class.
inline constexpr const wchar_t* KEY = L"INSTANCE_ID";

struct Change {
    std::wstring name;  // as the class spells it
    _variant_t value;
    bool is_unset = false;  // back to the class's default; `value` is null then
};

// The class's declaration, if instances can be named by an id. Throws OperationFailure.
ClassDeclaration ReadClassWithId(const std::string& name);

// Each property once, and the key never. Throws UsageFailure, and OperationFailure for a property that the
// class does not have.
std::vector<Change> ReadChanges(const ClassDeclaration& declaration,
                                const std::vector<Arguments::Assignment>& assignments);

// Whether a change is to null or to unset, which the library has no way to say.
bool HasNull(const std::vector<Change>& changes);

// Changes an instance in memory.
HRESULT Apply(const std::vector<Change>& changes, IWbemClassObject& instance);

// Stores a new instance with these keys and changes; `flags` are those of PutInstance.
HRESULT PutNew(IWbemServices& services, const ClassDeclaration& declaration, const std::vector<Change>& keys,
               const std::vector<Change>& changes, long flags);

// What to do about a write that failed with `code`; empty where there is nothing that helps in particular.
std::string AdviceForWrite(HRESULT code, const ClassDeclaration& declaration);

}  // namespace mgmtctl
