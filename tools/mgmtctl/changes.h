// The properties that a command line gives to an instance: NAME=VALUE, read by the types of its class.
//
//   const std::vector<Change> changes = ReadChanges(declaration, arguments.assignments);
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
    bool has_default = false;  // an instance that nobody gave a value has another than null
};

// The class's declaration, if instances can be named by an id. Throws OperationFailure.
ClassDeclaration ReadClassWithId(const std::string& name);

// Each property once, and the key never. Throws UsageFailure, and OperationFailure for a property that the
// class does not have.
std::vector<Change> ReadChanges(const ClassDeclaration& declaration,
                                const std::vector<Arguments::Assignment>& assignments);

bool HasNull(const std::vector<Change>& changes);
// Whether null stands for a property that has a default, so that leaving it out would not do.
bool HasNullForDefault(const std::vector<Change>& changes);

// A new instance in memory, with the key and the changes.
HRESULT Spawn(const ClassDeclaration& declaration, const std::wstring& id, const std::vector<Change>& changes,
              CComPtr<IWbemClassObject>& instance);

// What to do about a write that failed with `code`; empty where there is nothing that helps in particular.
std::string AdviceForWrite(HRESULT code, const ClassDeclaration& declaration);

}  // namespace mgmtctl
