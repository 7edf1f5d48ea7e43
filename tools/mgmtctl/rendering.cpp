#include "tools/mgmtctl/rendering.h"

#include <cstdint>
#include <iostream>

#include "tools/mgmtctl/datetime.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/table.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr const char* INDENT = "  ";
constexpr const char* DEFAULT = "  (default)";  // behind what was never set
constexpr const char* ELLIPSIS = "\u2026";

// Where something is shortened: a list ends behind the element that reaches this many bytes, embedded objects
// below one another behind this many.
constexpr std::size_t LONG_LINE = 300;
constexpr std::size_t LONG_CELL = 50;
constexpr std::size_t MANY_OBJECTS = 25;

std::string ClassOf(const VARIANT& value) {
    const CComPtr<IWbemClassObject> object = ObjectOf(value);
    return object == nullptr ? "null" : TextOf(*object, L"__CLASS");
}

std::string DatetimeText(const std::string& cim) {
    const std::string readable = ReadableDatetime(cim);
    return readable.empty() ? cim : cim + "  (" + readable + ")";
}

// The readable form leaves fractions of a second out.
std::string ShortDatetime(const std::string& cim) {
    const std::string readable = ReadableDatetime(cim);
    return readable.empty() || cim.find(".000000") == std::string::npos ? cim : readable;
}

// Text that would look like nothing, like a quoted text or like a word that is no text; "set" reads the
// quoted form back.
bool MustBeQuoted(const std::string& text) {
    return text.empty() || text == "null" || text == "unset" || text.ends_with(DEFAULT) ||
           text.front() == '"';
}

std::string ScalarText(CIMTYPE type, const VARIANT& value) {
    const OrderedJson json = ToJson(type, value);
    if (!json.is_string()) return json.dump();
    const auto text = json.get<std::string>();
    return MustBeQuoted(text) ? json.dump() : text;
}

// A list that is written until it is long enough.
class List {
 public:
    List(std::string open, std::size_t longest) : text_(std::move(open)), longest_(longest) {}

    bool IsLong() const { return text_.size() >= longest_; }
    std::size_t Room() const { return IsLong() ? 0 : longest_ - text_.size(); }

    void Add(const std::string& element) {
        text_ += (is_empty_ ? "" : ", ") + element;
        is_empty_ = false;
    }
    std::string Close(const char* close) { return text_ + close; }

 private:
    std::string text_;
    const std::size_t longest_;
    bool is_empty_ = true;
};

std::string CompactText(CIMTYPE type, const VARIANT& value, std::size_t longest);

// Texts in quotes, so that it shows where each ends.
std::string ElementText(CIMTYPE type, const VARIANT& value, std::size_t longest) {
    if (IsNull(value) || (!IsArray(type) && type != CIM_OBJECT)) return ToJson(type, value).dump();
    return CompactText(type, value, longest);
}

// An array, with its elements as `text_of(element, room)` has them.
template <typename TextOf>
std::string JoinElements(const VARIANT& array, std::size_t longest, TextOf text_of) {
    List list("[", longest);
    const std::size_t count = CountElements(array);
    for (std::size_t index = 0; index < count; ++index) {
        if (list.IsLong()) {
            list.Add(ELLIPSIS + (" " + Grouped(count)) + " elements");
            break;
        }
        list.Add(text_of(ElementOf(array, index), list.Room()));
    }
    return list.Close("]");
}

std::string ArrayText(CIMTYPE type, const VARIANT& value, std::size_t longest) {
    return JoinElements(value, longest, [&](const VARIANT& element, std::size_t room) {
        return ElementText(ElementType(type), element, room);
    });
}

std::string ObjectText(IWbemClassObject& object, std::size_t longest) {
    List list(TextOf(object, L"__CLASS") + " {", longest);
    for (const Property& property : PropertiesOf(object)) {
        if (IsNull(property.value)) continue;
        if (list.IsLong()) {
            list.Add(ELLIPSIS);
            break;
        }
        list.Add(Utf8(property.name) + ": " + ElementText(property.type, property.value, list.Room()));
    }
    return list.Close("}");
}

// An array or an object.
std::string CompactText(CIMTYPE type, const VARIANT& value, std::size_t longest) {
    if (IsArray(type)) return ArrayText(type, value, longest);
    const CComPtr<IWbemClassObject> object = ObjectOf(value);
    return object == nullptr ? "null" : ObjectText(*object, longest);
}

std::size_t Longest(Length length, std::size_t longest) {
    return length == Length::WHOLE ? SIZE_MAX : longest;
}

// The rows of a table that shows an object.
class ObjectRows {
 public:
    ObjectRows(Table& table, Length length) : table_(table), length_(length) {}

    void Add(IWbemClassObject& object, const std::string& indent) {
        for (const Property& property : PropertiesOf(object)) {
            std::string value = ToText(property.type, property.value, length_);
            if (property.type == CIM_DATETIME) value = DatetimeText(value);
            if (property.is_unset) value += DEFAULT;
            table_.Add({indent + Utf8(property.name), TypeName(property.type), value});
            if (ElementType(property.type) == CIM_OBJECT) AddEmbedded(property, indent + INDENT);
        }
    }

 private:
    void AddEmbedded(const Property& property, const std::string& indent) {
        if (!IsArray(property.type)) {
            if (const CComPtr<IWbemClassObject> object = ObjectOf(property.value)) Add(*object, indent);
            return;
        }
        const std::size_t count = CountElements(property.value);
        for (std::size_t index = 0; index < count; ++index) {
            if (index == Longest(length_, MANY_OBJECTS)) {
                table_.Add({indent + ELLIPSIS, "", Grouped(count) + " elements"});
                return;
            }
            AddElement(ElementOf(property.value, index), index, indent);
        }
    }

    void AddElement(const VARIANT& element, std::size_t index, const std::string& indent) {
        table_.Add({indent + "[" + std::to_string(index) + "]", "object", ClassOf(element)});
        if (const CComPtr<IWbemClassObject> object = ObjectOf(element)) Add(*object, indent + INDENT);
    }

    Table& table_;
    const Length length_;
};

std::string ClassList(const VARIANT& value, std::size_t longest) {
    return JoinElements(value, longest, [](const VARIANT& element, std::size_t) { return ClassOf(element); });
}

}  // namespace

std::string ToText(CIMTYPE type, const VARIANT& value, Length length) {
    if (IsNull(value)) return "null";
    const std::size_t longest = Longest(length, LONG_LINE);
    if (type == CIM_OBJECT) return ClassOf(value);
    if (!IsArray(type)) return ScalarText(type, value);
    return ElementType(type) == CIM_OBJECT ? ClassList(value, longest) : ArrayText(type, value, longest);
}

std::string CellText(CIMTYPE type, const VARIANT& value, Length length) {
    if (IsNull(value)) return "null";
    if (IsArray(type) || type == CIM_OBJECT) return CompactText(type, value, Longest(length, LONG_CELL));
    const std::string text = ScalarText(type, value);
    return type == CIM_DATETIME ? ShortDatetime(text) : text;
}

void PrintInstance(IWbemClassObject& object, Length length) {
    std::cout << Printable(TextOf(object, L"__RELPATH")) << "\n\n";
    Table table({"Name", "Type", "Value"});
    ObjectRows(table, length).Add(object, "");
    table.Print(std::cout);
}

}  // namespace mgmtctl
