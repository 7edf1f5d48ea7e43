#include "tools/mgmtctl/qualifiers.h"

#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

_variant_t QualifierOf(const Qualifiers& qualifiers, const wchar_t* name) {
    _variant_t value;
    if (qualifiers != nullptr) qualifiers->Get(name, 0, &value, nullptr);
    return value;
}

CIMTYPE TypeOfVariant(const VARIANT& value) {
    const CIMTYPE array = (value.vt & VT_ARRAY) != 0 ? CIM_FLAG_ARRAY : 0;
    switch (value.vt & VT_TYPEMASK) {
        case VT_BOOL:
            return CIM_BOOLEAN | array;
        case VT_I4:
            return CIM_SINT32 | array;
        case VT_I2:
            return CIM_SINT16 | array;
        case VT_UI1:
            return CIM_UINT8 | array;
        case VT_R4:
            return CIM_REAL32 | array;
        case VT_R8:
            return CIM_REAL64 | array;
        default:
            return CIM_STRING | array;
    }
}

bool HasClass(CIMTYPE type) {
    return ElementType(type) == CIM_REFERENCE || ElementType(type) == CIM_OBJECT;
}

}  // namespace

Qualifiers ClassQualifiers(IWbemClassObject& object) {
    Qualifiers qualifiers;
    object.GetQualifierSet(&qualifiers);
    return qualifiers;
}

Qualifiers PropertyQualifiers(IWbemClassObject& object, const std::wstring& name) {
    Qualifiers qualifiers;
    object.GetPropertyQualifierSet(name.c_str(), &qualifiers);
    return qualifiers;
}

Qualifiers MethodQualifiers(IWbemClassObject& object, const std::wstring& name) {
    Qualifiers qualifiers;
    object.GetMethodQualifierSet(name.c_str(), &qualifiers);
    return qualifiers;
}

std::vector<NamedQualifier> ReadQualifiers(const Qualifiers& qualifiers) {
    std::vector<NamedQualifier> read;
    if (qualifiers == nullptr || FAILED(qualifiers->BeginEnumeration(0))) return read;
    while (true) {
        CComBSTR name;
        NamedQualifier each;
        if (qualifiers->Next(0, &name, each.value.GetAddress(), nullptr) != WBEM_S_NO_ERROR) break;
        each.name.assign(name, name.Length());
        each.type = TypeOfVariant(each.value);
        read.push_back(std::move(each));
    }
    qualifiers->EndEnumeration();
    return read;
}

std::string TextQualifier(const Qualifiers& qualifiers, const wchar_t* name) {
    const _variant_t value = QualifierOf(qualifiers, name);
    return value.vt == VT_BSTR ? Utf8(value.bstrVal) : std::string();
}

std::vector<std::string> TextsQualifier(const Qualifiers& qualifiers, const wchar_t* name) {
    const _variant_t value = QualifierOf(qualifiers, name);
    std::vector<std::string> texts;
    if (value.vt != (VT_ARRAY | VT_BSTR)) return texts;
    for (const _variant_t& element : ElementsOf(value))
        texts.push_back(element.vt == VT_BSTR ? Utf8(element.bstrVal) : std::string());
    return texts;
}

bool BooleanQualifier(const Qualifiers& qualifiers, const wchar_t* name) {
    const _variant_t value = QualifierOf(qualifiers, name);
    return value.vt == VT_BOOL && value.boolVal != VARIANT_FALSE;
}

// Only the qualifier tells: "ref:Volume", "object:Schedule".
std::string ClassOfType(CIMTYPE type, const Qualifiers& qualifiers) {
    const std::string declared = HasClass(type) ? TextQualifier(qualifiers, L"CIMTYPE") : std::string();
    const std::size_t colon = declared.find(':');
    return colon == std::string::npos ? std::string() : declared.substr(colon + 1);
}

std::string DeclaredTypeName(CIMTYPE type, const Qualifiers& qualifiers) {
    const std::string of_class = ClassOfType(type, qualifiers);
    if (of_class.empty()) return TypeName(type);
    const std::string kind = ElementType(type) == CIM_REFERENCE ? "ref " : "object ";
    return kind + of_class + (IsArray(type) ? "[]" : "");
}

}  // namespace mgmtctl
