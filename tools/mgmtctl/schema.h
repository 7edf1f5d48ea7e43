// All classes of a namespace, and what each needs of the others.
//
//   const Schema schema = Schema::Read(*services);
//   for (const SchemaClass* each : schema.InOrder(schema.WithNeeds({L"Policy"}))) ...
//
// Held in memory whole. A schema belongs to one thread.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

// A property of a class that holds references to another or objects of it.
struct ClassLink {
    std::wstring property;
    std::wstring target;
    bool is_reference = false;  // else it holds objects
};

struct SchemaClass {
    std::wstring name;
    std::wstring superclass;          // empty for none
    std::vector<ClassLink> links;     // of the properties that the class declares itself
    std::vector<std::wstring> needs;  // further classes: of its methods' parameters, of its defaults' objects
    bool has_objects = false;         // whether a property, an inherited one too, holds objects
    CComPtr<IWbemClassObject> object;
};

class Schema {
 public:
    static Schema Read(IWbemServices& services);

    // In any case; null where there is none.
    const SchemaClass* Find(const std::wstring& name) const;

    // The names by which the functions below know classes.
    using Names = std::set<std::wstring>;
    Names All() const;
    // The classes of these names and those below them; a name that no class has is left out.
    Names WithSubclasses(const std::vector<std::wstring>& names) const;
    // With the superclasses, and the classes that are referred to or embedded, of all of them.
    Names WithNeeds(Names names) const;

    // Each superclass in front of its subclasses, which come in the order of their names.
    std::vector<const SchemaClass*> InOrder(const Names& names) const;

    static std::wstring Fold(const std::wstring& name);

 private:
    void Add(IWbemClassObject& object);
    void Append(const std::wstring& superclass, const Names& names,
                std::vector<const SchemaClass*>& ordered) const;

    std::map<std::wstring, SchemaClass> classes_;                   // by their folded names
    std::map<std::wstring, std::vector<std::wstring>> subclasses_;  // in the order of their folded names
};

}  // namespace mgmtctl
