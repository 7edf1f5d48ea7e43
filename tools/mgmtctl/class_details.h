// What is said of a class beyond its declaration: whence it derives, the qualifiers and the methods.
//
//   const ClassDetails details = ReadDetails(*services, declaration);
//
// A class's details belong to one thread. Failures are thrown as OperationFailure.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/mgmtctl/class_declaration.h"
#include "tools/mgmtctl/qualifiers.h"

namespace mgmtctl {

struct DeclaredParameter {
    std::string name;
    std::string type_name;
    std::string description;
    bool is_in = false;
    bool is_out = false;
};

struct DeclaredMethod {
    std::string name;
    std::string result;  // the type of what it returns; "void" for nothing
    std::string origin;  // the class that introduces it
    std::string description;
    std::vector<DeclaredParameter> parameters;
    std::vector<NamedQualifier> qualifiers;
};

struct ClassDetails {
    std::vector<std::string> superclasses;  // the nearest first
    std::vector<std::string> subclasses;    // those directly below
    std::vector<NamedQualifier> qualifiers;
    std::map<std::wstring, std::vector<NamedQualifier>> property_qualifiers;  // by the property's name
    std::vector<DeclaredMethod> methods;
};

ClassDetails ReadDetails(IWbemServices& services, const ClassDeclaration& declaration);

// The qualifier of that name, in any case; null where there is none.
const NamedQualifier* FindQualifier(const std::vector<NamedQualifier>& qualifiers, const wchar_t* name);

}  // namespace mgmtctl
