// What is said of a class, a property or a method: its qualifiers, read from their set.
//
//   for (const NamedQualifier& each : ReadQualifiers(*set)) std::cout << Utf8(each.name) << '\n';
//   std::string unit = TextQualifier(set, L"Units");
//
// A set may be null: it then has no qualifiers. Sets belong to one thread at a time.
#pragma once

#include <string>
#include <vector>

#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

using Qualifiers = CComPtr<IWbemQualifierSet>;

struct NamedQualifier {
    std::wstring name;
    CIMTYPE type = CIM_EMPTY;  // of the variant: sint32, real64, boolean, string, or an array of these
    _variant_t value;
};

Qualifiers ClassQualifiers(IWbemClassObject& object);
Qualifiers PropertyQualifiers(IWbemClassObject& object, const std::wstring& name);
Qualifiers MethodQualifiers(IWbemClassObject& object, const std::wstring& name);

std::vector<NamedQualifier> ReadQualifiers(const Qualifiers& qualifiers);

// Empty where there is none, or none that is a text.
std::string TextQualifier(const Qualifiers& qualifiers, const wchar_t* name);
// The elements of an array of texts.
std::vector<std::string> TextsQualifier(const Qualifiers& qualifiers, const wchar_t* name);
bool BooleanQualifier(const Qualifiers& qualifiers, const wchar_t* name);

// The class that a reference or an object is declared with; empty for any, and for other types.
std::string ClassOfType(CIMTYPE type, const Qualifiers& qualifiers);
// "uint32[]", "ref Volume", "object Schedule[]".
std::string DeclaredTypeName(CIMTYPE type, const Qualifiers& qualifiers);

}  // namespace mgmtctl
