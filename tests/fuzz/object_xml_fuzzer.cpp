// The input describes an object and how it is to be written. The first line says how: c for DMTF's form, l
// local only, q qualifiers, o class origin, 0 to 3 the path level. Each other line is one of these:
//
//   ID=a\nb       a value; the escapes are \n, \r, \0, \\ and \p for |; NULL is null
//   Texts=a|b     the elements of an array
//   <Any          an object, which is set where a line > ends it
//
// The values are the defaults of a class, too, whose description is ID.
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/language/object_xml.h"
#include "service/model/limits.h"
#include "tests/fuzz/expectations.h"
#include "tests/fuzz/schema.h"
#include "tests/service/cim_dtd.h"
#include "tests/service/xml_document.h"

namespace {

using namespace service;
using fuzz::Expect;

std::string Unescaped(std::string_view text) {
    constexpr std::string_view kLetters = "nr0p", kMeanings("\n\r\0|", 4);
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool is_escape = text[i] == '\\' && i + 1 < text.size();
        const size_t letter = is_escape ? kLetters.find(text[++i]) : std::string_view::npos;
        plain += letter == std::string_view::npos ? text[i] : kMeanings[letter];
    }
    return plain;
}

template <typename Number>
Scalar NumberIn(std::string_view text) {
    Number number{};
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

Scalar ScalarOf(CimType type, std::string_view text) {
    if (text == "NULL") return {};
    switch (RepresentationOf(type)) {
        case Representation::kBoolean:
            return text == "TRUE";
        case Representation::kSigned:
            return NumberIn<int64_t>(text);
        case Representation::kUnsigned:
            return NumberIn<uint64_t>(text);
        case Representation::kReal:
            return NumberIn<double>(text);
        case Representation::kText:
            return IsValidUtf8(text) ? Scalar(Unescaped(text)) : Scalar();
        case Representation::kObject:
            break;
    }
    return {};
}

Array ArrayOf(CimType type, std::string_view text) {
    Array array;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('|', start), text.size());
        array.push_back(ScalarOf(type, text.substr(start, end - start)));
        start = end + 1;
    }
    return array;
}

// Objects being described, the innermost last.
class Builder {
 public:
    Builder() { Begin("", "Wide"); }

    void Take(std::string_view line) {
        if (line.empty()) return;
        if (line.front() == '<' && open_.size() < kMaxEmbeddingDepth) {
            Begin(line.substr(1), line.substr(1) == "Any" ? "Wide" : "Inner");
        } else if (line.front() == '>') {
            End();
        } else if (const size_t equals = line.find('='); equals != std::string_view::npos) {
            Assign(line.substr(0, equals), line.substr(equals + 1));
        }
    }

    Instance Finish() {
        while (open_.size() > 1)
            End();
        return open_.front().second;
    }

 private:
    void Begin(std::string_view property, std::string_view class_name) {
        open_.emplace_back(property, Instance(fuzz::ClassNamed(class_name)));
    }

    void End() {
        if (open_.size() == 1) return;
        const ObjectPtr object(std::make_shared<Instance>(open_.back().second));
        const std::string property = open_.back().first;
        open_.pop_back();
        Instance& outer = open_.back().second;
        if (!fuzz::Set(outer, property, object)) fuzz::Set(outer, property, Array{object, Scalar(), object});
    }

    void Assign(std::string_view property, std::string_view text) {
        Instance& instance = open_.back().second;
        const auto index = instance.Class()->FindProperty(property);
        if (!index) return;
        const PropertyType& type = instance.Class()->Properties()[*index].type;
        Value value = std::visit([](const auto& held) -> Value { return held; }, ScalarOf(type.type, text));
        if (type.is_array && text != "NULL") value = ArrayOf(type.type, text);
        static_cast<void>(instance.Set(*index, std::move(value)));
    }

    std::vector<std::pair<std::string, Instance>> open_;
};

ObjectXml HowIn(std::string_view options) {
    ObjectXml how;
    how.server = ".";
    how.namespace_path = "root\\test";
    for (const char option : options) {
        if (option == 'c') how.form = XmlForm::kCim;
        if (option == 'l') how.local_only = true;
        if (option == 'q') how.include_qualifiers = true;
        if (option == 'o') how.include_class_origin = true;
        if (option >= '0' && option <= '3') how.path_level = static_cast<XmlPathLevel>(option - '0');
    }
    return how;
}

// The document, well-formed and valid; nothing where the object cannot be written so.
std::string Checked(const Status& fault, XmlWriter& xml, XmlForm form) {
    if (!fault.ok()) {
        fuzz::ExpectSentence(fault);
        return {};
    }
    const Result<std::string_view> text = xml.Finish();
    Expect(text.ok(), "the text can be written", text.status().reason());
    const std::string faults =
        XmlDocument(*text).FaultsAgainst(CimDtd(form == XmlForm::kCim ? DtdForm::kCim : DtdForm::kExtended));
    Expect(faults.empty(), "the text is well-formed and valid", faults + std::string(*text));
    return std::string(*text);
}

void CheckValuesIn(const std::string& xml, const Instance& instance) {
    const XmlDocument document(xml);
    const auto written = [&document](const std::string& name) {
        return document.Text("(/INSTANCE | /*/INSTANCE)/PROPERTY[@NAME='" + name + "']/VALUE");
    };
    const Value text = ValueOf(instance, "Text");
    const auto* held = std::get_if<std::string>(&text);
    if (held && instance.IsSet(*instance.Class()->FindProperty("Text"))) {
        std::string carried;
        for (const wchar_t character : ToWideLossy(*held))
            AppendUtf8Of(AsXmlCarries(static_cast<char32_t>(character)), carried);
        Expect(written("Text") == carried, "a text can be read from XML", xml);
    }
    const Value value = ValueOf(instance, "R64");
    if (const auto* real = std::get_if<double>(&value); real && std::isfinite(*real)) {
        double read = 0;
        const std::string digits = written("R64");
        std::from_chars(digits.data(), digits.data() + digits.size(), read);
        Expect(read == *real, "a real is written in enough digits", digits);
    }
}

ClassDeclaration ClassLike(const Instance& instance) {
    ClassDeclaration declaration;
    declaration.name = "Made";
    const Qualifier description{"Description", {CimType::kString, false, 0, {}}, ValueOf(instance, "ID")};
    declaration.qualifiers.push_back(description);
    for (size_t i = 0; i < instance.Class()->Properties().size(); ++i) {
        if (!instance.IsSet(i)) continue;
        const PropertyDefinition& property = instance.Class()->Properties()[i];
        PropertyDeclaration& declared = declaration.properties.emplace_back();
        declared.name = property.name;
        declared.type = property.type;
        declared.ordinal = declaration.next_ordinal++;
        if (property.type.type != CimType::kObject) declared.default_value = ValueOf(instance, property.name);
        declared.qualifiers.push_back(description);
    }
    return declaration;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const ObjectXml how = HowIn(input.substr(0, input.find('\n')));
    Builder builder;
    for (size_t end = input.find('\n'); end != std::string_view::npos;) {
        const size_t start = end + 1;
        end = input.find('\n', start);
        builder.Take(input.substr(start, end - start));
    }
    const Instance instance = builder.Finish();
    XmlWriter xml;
    const std::string text = Checked(WriteInstanceXml(instance, how, xml), xml, how.form);
    if (!text.empty()) CheckValuesIn(text, instance);

    const Result<ClassPtr> made = ClassDefinition::Resolve(1, ClassLike(instance), nullptr);
    if (!made.ok()) {
        fuzz::ExpectSentence(made.status());
        return 0;
    }
    XmlWriter class_xml;
    Checked(WriteClassXml((*made)->Name(), **made, how, class_xml), class_xml, how.form);
    return 0;
}
