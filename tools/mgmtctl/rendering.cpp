#include "tools/mgmtctl/rendering.h"

#include <iostream>

#include "tools/mgmtctl/datetime.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/table.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr const char* INDENT = "  ";

std::string ClassOf(const VARIANT& value) {
    const CComPtr<IWbemClassObject> object = ObjectOf(value);
    return object == nullptr ? "null" : TextOf(*object, L"__CLASS");
}

std::string DatetimeText(const std::string& cim) {
    const std::string readable = ReadableDatetime(cim);
    return readable.empty() ? cim : cim + "  (" + readable + ")";
}

// Text that would look like null, like nothing or like a quoted text; "set" reads the quoted form back.
bool MustBeQuoted(const std::string& text) {
    return text.empty() || text == "null" || text.front() == '"';
}

std::string ScalarText(CIMTYPE type, const VARIANT& value) {
    if (type == CIM_OBJECT) return ClassOf(value);
    const OrderedJson json = ToJson(type, value);
    if (!json.is_string()) return json.dump();
    const auto text = json.get<std::string>();
    return MustBeQuoted(text) ? json.dump() : text;
}

// An element as it stands in an array: texts in quotes, so that it shows where each ends.
std::string ElementText(CIMTYPE type, const VARIANT& value) {
    if (type == CIM_OBJECT) return ClassOf(value);
    return ToJson(type, value).dump();
}

std::string ArrayText(CIMTYPE type, const VARIANT& value) {
    std::string text = "[";
    for (const _variant_t& element : ElementsOf(value)) {
        if (text.size() > 1) text += ", ";
        text += ElementText(ElementType(type), element);
    }
    return text + "]";
}

void AddRows(IWbemClassObject& object, const std::string& indent, Table& table);

void AddEmbedded(const Property& property, const std::string& indent, Table& table) {
    if (!IsArray(property.type)) {
        if (const CComPtr<IWbemClassObject> object = ObjectOf(property.value))
            AddRows(*object, indent + INDENT, table);
        return;
    }
    std::size_t index = 0;
    for (const _variant_t& element : ElementsOf(property.value)) {
        table.Add({indent + INDENT + "[" + std::to_string(index++) + "]", "object", ClassOf(element)});
        if (const CComPtr<IWbemClassObject> object = ObjectOf(element))
            AddRows(*object, indent + INDENT + INDENT, table);
    }
}

void AddRows(IWbemClassObject& object, const std::string& indent, Table& table) {
    for (const Property& property : PropertiesOf(object)) {
        std::string value = ToText(property.type, property.value);
        if (property.type == CIM_DATETIME) value = DatetimeText(value);
        table.Add({indent + Utf8(property.name), TypeName(property.type), value});
        if (ElementType(property.type) == CIM_OBJECT) AddEmbedded(property, indent, table);
    }
}

}  // namespace

std::string ToText(CIMTYPE type, const VARIANT& value) {
    if (IsNull(value)) return "null";
    return IsArray(type) ? ArrayText(type, value) : ScalarText(type, value);
}

void PrintInstance(IWbemClassObject& object) {
    std::cout << Printable(TextOf(object, L"__RELPATH")) << "\n\n";
    Table table({"Name", "Type", "Value"});
    AddRows(object, "", table);
    table.Print(std::cout);
}

}  // namespace mgmtctl
