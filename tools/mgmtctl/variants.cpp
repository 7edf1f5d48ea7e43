#include "tools/mgmtctl/variants.h"

#include <cstdint>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

// An enumeration of an object's properties, ended when it goes out of scope.
class Enumeration {
 public:
    explicit Enumeration(IWbemClassObject& object) : object_(object) {
        Check(object_.BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY), "cannot list the properties");
    }
    ~Enumeration() { object_.EndEnumeration(); }
    Enumeration(const Enumeration&) = delete;
    Enumeration& operator=(const Enumeration&) = delete;

    bool Next(Property& property) {
        CComBSTR name;
        long flavor = 0;
        const HRESULT result = object_.Next(0, &name, property.value.GetAddress(), &property.type, &flavor);
        Check(result, "cannot read the properties");
        if (result != WBEM_S_NO_ERROR) return false;
        property.name.assign(name, name.Length());
        property.is_unset = flavor == WBEM_FLAVOR_ORIGIN_PROPAGATED;
        return true;
    }

 private:
    IWbemClassObject& object_;
};

const char* ScalarTypeName(CIMTYPE type) {
    switch (type) {
        case CIM_SINT8:
            return "sint8";
        case CIM_UINT8:
            return "uint8";
        case CIM_SINT16:
            return "sint16";
        case CIM_UINT16:
            return "uint16";
        case CIM_SINT32:
            return "sint32";
        case CIM_UINT32:
            return "uint32";
        case CIM_SINT64:
            return "sint64";
        case CIM_UINT64:
            return "uint64";
        case CIM_REAL32:
            return "real32";
        case CIM_REAL64:
            return "real64";
        case CIM_BOOLEAN:
            return "boolean";
        case CIM_STRING:
            return "string";
        case CIM_DATETIME:
            return "datetime";
        case CIM_REFERENCE:
            return "reference";
        case CIM_CHAR16:
            return "char16";
        case CIM_OBJECT:
            return "object";
        default:
            return "unknown";
    }
}

bool IsArrayValue(const VARIANT& value) {
    return (value.vt & VT_ARRAY) != 0 && value.parray != nullptr;
}

}  // namespace

std::vector<Property> PropertiesOf(IWbemClassObject& object) {
    std::vector<Property> properties;
    Enumeration enumeration(object);
    for (Property property; enumeration.Next(property);)
        properties.push_back(std::move(property));
    return properties;
}

_variant_t ValueOf(IWbemClassObject& object, const wchar_t* name) {
    _variant_t value;
    object.Get(name, 0, &value, nullptr, nullptr);
    return value;
}

std::optional<Property> PropertyOf(IWbemClassObject& object, const std::wstring& name) {
    Property property;
    property.name = name;
    long flavor = 0;
    const HRESULT result = object.Get(name.c_str(), 0, &property.value, &property.type, &flavor);
    if (result == WBEM_E_NOT_FOUND) return std::nullopt;
    Check(result, "cannot read the property " + Utf8(name));
    property.is_unset = flavor == WBEM_FLAVOR_ORIGIN_PROPAGATED;
    return property;
}

std::string TextOf(IWbemClassObject& object, const wchar_t* name) {
    const _variant_t value = ValueOf(object, name);
    return value.vt == VT_BSTR ? Utf8(value.bstrVal) : std::string();
}

CComPtr<IWbemClassObject> ObjectOf(const VARIANT& value) {
    CComPtr<IWbemClassObject> object;
    if (value.vt == VT_UNKNOWN && value.punkVal != nullptr)
        value.punkVal->QueryInterface(IID_PPV_ARGS(&object.p));
    return object;
}

std::size_t CountElements(const VARIANT& array) {
    if (!IsArrayValue(array)) return 0;
    LONG lower = 0;
    LONG upper = -1;
    Check(SafeArrayGetLBound(array.parray, 1, &lower), "cannot read an array");
    Check(SafeArrayGetUBound(array.parray, 1, &upper), "cannot read an array");
    return static_cast<std::size_t>(std::int64_t{upper} - lower + 1);
}

_variant_t ElementOf(const VARIANT& array, std::size_t index) {
    _variant_t element;
    VARTYPE type = VT_EMPTY;
    LONG place = 0;
    Check(SafeArrayGetVartype(array.parray, &type), "cannot read an array");
    Check(SafeArrayGetLBound(array.parray, 1, &place), "cannot read an array");
    place += static_cast<LONG>(index);
    if (type == VT_VARIANT) {
        Check(SafeArrayGetElement(array.parray, &place, static_cast<VARIANT*>(&element)),
              "cannot read an array");
        return element;
    }
    Check(SafeArrayGetElement(array.parray, &place, &element.llVal), "cannot read an array");
    element.vt = type;
    const bool is_null =
        (type == VT_BSTR && element.bstrVal == nullptr) || (type == VT_UNKNOWN && element.punkVal == nullptr);
    if (is_null) element.vt = VT_NULL;
    return element;
}

std::vector<_variant_t> ElementsOf(const VARIANT& array) {
    std::vector<_variant_t> elements;
    const std::size_t count = CountElements(array);
    elements.reserve(count);
    for (std::size_t index = 0; index < count; ++index)
        elements.push_back(ElementOf(array, index));
    return elements;
}

bool IsNull(const VARIANT& value) {
    return value.vt == VT_NULL || value.vt == VT_EMPTY;
}

bool IsArray(CIMTYPE type) {
    return (type & CIM_FLAG_ARRAY) != 0;
}

CIMTYPE ElementType(CIMTYPE type) {
    return type & ~static_cast<CIMTYPE>(CIM_FLAG_ARRAY);
}

std::string TypeName(CIMTYPE type) {
    const std::string name = ScalarTypeName(ElementType(type));
    return IsArray(type) ? name + "[]" : name;
}

}  // namespace mgmtctl
