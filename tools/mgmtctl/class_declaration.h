// The declaration of a class, read through the library: what types its properties have and what is said of
// them.
//
//   const ClassDeclaration declaration = ReadClass("RetentionPolicy");
//   const DeclaredProperty* days = declaration.Find(L"keepdays");
//
// A declaration belongs to one thread.
#pragma once

#include <string>
#include <vector>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

struct DeclaredProperty : Property {  // the value is the default
    std::string type_name;            // "uint32[]", "ref Volume", "object"
    std::string origin;               // the class that introduces the property
    std::string description;
    bool is_key = false;
};

// What a class object says of itself; every text may be empty.
struct ClassSummary {
    std::string name;
    std::string superclass;
    std::string description;
    std::vector<std::string> keys;
    bool is_abstract = false;
};

ClassSummary SummaryOf(IWbemClassObject& class_object);

struct ClassDeclaration {
    ClassSummary summary;
    std::vector<DeclaredProperty> properties;
    CComPtr<IWbemClassObject> object;

    // By its name in any case; null for a name that the class does not have.
    const DeclaredProperty* Find(const std::wstring& name) const;
};

// Throws OperationFailure when there is no such class.
ClassDeclaration ReadClass(const std::string& name);

// For a path that names a class where an instance is wanted.
OperationFailure ThatIsAClass(const std::string& attempt, const std::string& path);
// Throws it, or what ReadClass does, for a path that has no key; an empty one is none.
void RefuseClass(const std::string& attempt, const std::string& path);

}  // namespace mgmtctl
