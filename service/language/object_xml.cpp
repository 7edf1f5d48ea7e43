#include "service/language/object_xml.h"

#include <array>
#include <charconv>
#include <optional>
#include <utility>

#include "service/language/path_xml.h"
#include "service/model/limits.h"
#include "service/model/object_path.h"
#include "service/model/real_text.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr std::string_view kSystemOrigin = "___SYSTEM";
const PropertyType kText{CimType::kString, false, 0, {}};

// A property as it is to be written.
struct Shown {
    std::string_view name;
    const PropertyType& type;
    const ValueView& value;
    std::string_view origin;
    bool is_propagated = false;
    const std::vector<Qualifier>* qualifiers = nullptr;
    const std::vector<Qualifier>* own_qualifiers = nullptr;  // null where all are inherited
};

void WriteFlag(const char* name, bool flag, XmlWriter& out) {
    out.Attribute(name, flag ? "true" : "false");
}

std::string CharacterText(uint64_t character) {
    if (character >= 0xD800 && character <= 0xDFFF) return "\xEF\xBF\xBD";
    const wchar_t wide = static_cast<wchar_t>(character);
    return ToUtf8Lossy({&wide, 1});
}

template <typename Number>
std::string_view Digits(Number number, std::array<char, 40>& room) {
    const auto end = std::to_chars(room.data(), room.data() + room.size(), number).ptr;
    return {room.data(), static_cast<size_t>(end - room.data())};
}

// `value` is neither null nor an array nor an object.
void WriteScalarText(CimType type, const ValueView& value, XmlWriter& out) {
    std::array<char, 40> room{};
    if (const auto* text = std::get_if<std::string_view>(&value)) {
        out.Text(*text);
    } else if (const auto* number = std::get_if<int64_t>(&value)) {
        out.Text(Digits(*number, room));
    } else if (const auto* natural = std::get_if<uint64_t>(&value)) {
        out.Text(type == CimType::kChar16 ? CharacterText(*natural) : Digits(*natural, room));
    } else if (const auto* real = std::get_if<double>(&value)) {
        // The grammar of a real in DMTF's DTD asks for a point: "1.0", "1.0e+20".
        out.Text(PointedRealText(type, *real));
    } else if (const auto* flag = std::get_if<bool>(&value)) {
        out.Text(*flag ? "TRUE" : "FALSE");
    }
}

class ObjectWriter {
 public:
    ObjectWriter(const ObjectXml& how, size_t depth, XmlWriter& out) : how_(how), depth_(depth), out_(out) {}

    Status Write(const Instance& instance) {
        out_.Start("INSTANCE");
        out_.Attribute("CLASSNAME", instance.Class()->Name());
        WriteQualifiers(instance.Class()->Qualifiers(), nullptr);
        SERVICE_RETURN_IF_ERROR(WriteSystemProperties(depth_ > 0 ? &instance : nullptr));
        const auto& properties = instance.Class()->Properties();
        for (size_t i = 0; i < properties.size(); ++i) {
            const bool is_set = instance.IsSet(i);
            if (how_.local_only && !is_set) continue;
            Value storage;
            ValueView view;
            SERVICE_RETURN_IF_ERROR(instance.Read(i, storage, view));
            const PropertyDefinition& property = properties[i];
            SERVICE_RETURN_IF_ERROR(WriteProperty({property.name, property.type, view, property.origin,
                                                   !is_set, &property.qualifiers.list(), nullptr}));
        }
        out_.End();
        return {};
    }

    Status Write(std::string_view name, const ClassDefinition& definition) {
        out_.Start("CLASS");
        out_.Attribute("NAME", name);
        if (definition.Superclass()) out_.Attribute("SUPERCLASS", definition.Superclass()->Name());
        const ClassDeclaration& declaration = definition.Declaration();
        WriteQualifiers(definition.Qualifiers(), &declaration.qualifiers);
        SERVICE_RETURN_IF_ERROR(WriteSystemProperties(nullptr));
        for (const PropertyDefinition& property : definition.Properties()) {
            if (how_.local_only && !property.is_local) continue;
            // A class without a name yet has the properties that it declares from itself.
            const bool is_own = EqualFolded(property.origin, declaration.name);
            const ValueView view = ViewOf(property.default_value);
            SERVICE_RETURN_IF_ERROR(WriteProperty(
                {property.name, property.type, view, is_own ? name : std::string_view(property.origin),
                 !property.is_local, &property.qualifiers.list(), OwnQualifiers(declaration, property)}));
        }
        out_.End();
        return {};
    }

 private:
    static const std::vector<Qualifier>* OwnQualifiers(const ClassDeclaration& declaration,
                                                       const PropertyDefinition& property) {
        if (!property.is_local) return nullptr;
        for (const PropertyDeclaration& declared : declaration.properties) {
            if (EqualFolded(declared.name, property.name)) return &declared.qualifiers;
        }
        return nullptr;
    }

    // Of the inherited ones there is nothing to say where only what is local is shown.
    void WriteQualifiers(const std::vector<Qualifier>& qualifiers, const std::vector<Qualifier>* own) {
        if (!how_.include_qualifiers) return;
        for (const Qualifier& qualifier : qualifiers) {
            const bool is_own = own && FindQualifier(*own, qualifier.name);
            if (is_own || !how_.local_only) WriteQualifier(qualifier, is_own);
        }
    }

    void WriteQualifier(const Qualifier& qualifier, bool is_own) {
        out_.Start("QUALIFIER");
        out_.Attribute("NAME", qualifier.name);
        out_.Attribute("TYPE", CimTypeName(qualifier.type.type));
        if (!is_own) WriteFlag("PROPAGATED", true, out_);
        if (qualifier.flavor & kFlavorNotOverridable) WriteFlag("OVERRIDABLE", false, out_);
        if (!(qualifier.flavor & kFlavorToSubclass)) WriteFlag("TOSUBCLASS", false, out_);
        if (qualifier.flavor & kFlavorToInstance) WriteFlag("TOINSTANCE", true, out_);
        if (qualifier.flavor & kFlavorAmended) WriteFlag("TRANSLATABLE", true, out_);
        const ValueView value = ViewOf(qualifier.value);
        if (const auto* array = std::get_if<const Array*>(&value)) {
            out_.Start("VALUE.ARRAY");
            for (const Scalar& element : **array)
                WritePlain(qualifier.type.type, ViewOf(element));
            out_.End();
        } else if (!IsNull(value)) {
            WritePlain(qualifier.type.type, value);
        }
        out_.End();
    }

    Status WriteSystemProperties(const Instance* embedded) {
        if (!how_.system_properties) return {};
        SERVICE_ASSIGN_OR_RETURN(const std::vector<XmlSystemProperties::Property> properties,
                                 how_.system_properties->Of(embedded));
        for (const XmlSystemProperties::Property& property : properties) {
            const ValueView view = ViewOf(property.value);
            SERVICE_RETURN_IF_ERROR(WriteProperty({property.name, property.type, view, kSystemOrigin}));
        }
        return {};
    }

    bool IsReferenceElement(const PropertyType& type) const {
        return type.type == CimType::kReference && (how_.form == XmlForm::kWmi || !type.is_array);
    }
    bool IsObjectElement(const PropertyType& type) const {
        return type.type == CimType::kObject && how_.form == XmlForm::kWmi;
    }

    const char* PropertyElement(const PropertyType& type) const {
        if (IsReferenceElement(type)) return type.is_array ? "PROPERTY.REFARRAY" : "PROPERTY.REFERENCE";
        if (IsObjectElement(type)) return type.is_array ? "PROPERTY.OBJECTARRAY" : "PROPERTY.OBJECT";
        return type.is_array ? "PROPERTY.ARRAY" : "PROPERTY";
    }

    const char* ArrayElement(const PropertyType& type) const {
        if (IsReferenceElement(type)) return "VALUE.REFARRAY";
        return IsObjectElement(type) ? "VALUE.OBJECTARRAY" : "VALUE.ARRAY";
    }

    Status WriteProperty(const Shown& property) {
        if (out_.IsFull()) return std::move(out_.Finish()).status();
        out_.Start(PropertyElement(property.type));
        out_.Attribute("NAME", property.name);
        WriteType(property.type);
        if (how_.include_class_origin) out_.Attribute("CLASSORIGIN", property.origin);
        if (property.is_propagated) WriteFlag("PROPAGATED", true, out_);
        if (property.qualifiers) WriteQualifiers(*property.qualifiers, property.own_qualifiers);
        SERVICE_RETURN_IF_ERROR(WriteValue(property.type, property.value));
        out_.End();
        return {};
    }

    void WriteType(const PropertyType& type) {
        if (IsReferenceElement(type)) {
            if (!type.class_name.empty()) out_.Attribute("REFERENCECLASS", type.class_name);
        } else if (!IsObjectElement(type)) {
            const bool as_text = type.type == CimType::kObject || type.type == CimType::kReference;
            out_.Attribute("TYPE", CimTypeName(as_text ? CimType::kString : type.type));
        }
        if (type.is_array && type.max_elements) {
            std::array<char, 40> room{};
            out_.Attribute("ARRAYSIZE", Digits(type.max_elements, room));
        }
        if (type.type == CimType::kObject && !IsObjectElement(type))
            out_.Attribute("EmbeddedObject", type.class_name.empty() ? "object" : "instance");
    }

    Status WriteValue(const PropertyType& type, const ValueView& value) {
        if (IsNull(value)) return {};
        const auto* array = std::get_if<const Array*>(&value);
        if (!array) return WriteElement(type, value);
        out_.Start(ArrayElement(type));
        for (const Scalar& element : **array) {
            if (out_.IsFull()) return std::move(out_.Finish()).status();
            SERVICE_RETURN_IF_ERROR(WriteElement(type, ViewOf(element)));
        }
        out_.End();
        return {};
    }

    Status WriteElement(const PropertyType& type, const ValueView& value) {
        if (const auto* object = std::get_if<const ObjectPtr*>(&value)) return WriteEmbedded(***object);
        if (IsReferenceElement(type) && !IsNull(value)) {
            WriteReferenceXml(std::get<std::string_view>(value), out_);
        } else {
            WritePlain(type.type, value);
        }
        return {};
    }

    void WritePlain(CimType type, const ValueView& value) {
        out_.Start(IsNull(value) ? "VALUE.NULL" : "VALUE");
        WriteScalarText(type, value, out_);
        out_.End();
    }

    Status WriteEmbedded(const Instance& instance) {
        if (depth_ == kMaxEmbeddingDepth) {
            return {WBEM_E_INVALID_OBJECT, "an object of class " + instance.Class()->Name() +
                                               " is embedded more than " +
                                               std::to_string(kMaxEmbeddingDepth) + " deep"};
        }
        if (how_.form == XmlForm::kWmi) {
            out_.Start("VALUE.OBJECT");
            SERVICE_RETURN_IF_ERROR(ObjectWriter(how_, depth_ + 1, out_).Write(instance));
        } else {
            XmlWriter text(out_.BytesLeft());
            SERVICE_RETURN_IF_ERROR(ObjectWriter(how_, depth_ + 1, text).Write(instance));
            SERVICE_ASSIGN_OR_RETURN(const std::string_view written, text.Finish());
            out_.Start("VALUE");
            out_.Text(written);
        }
        out_.End();
        return {};
    }

    const ObjectXml& how_;
    const size_t depth_;  // objects around this one
    XmlWriter& out_;
};

const char* PathLevelElement(XmlPathLevel level) noexcept {
    switch (level) {
        case XmlPathLevel::kName:
            return "VALUE.NAMEDOBJECT";
        case XmlPathLevel::kNamespace:
            return "VALUE.OBJECTWITHLOCALPATH";
        default:
            return "VALUE.OBJECTWITHPATH";
    }
}

// Adds to the path what the level asks for.
Status Locate(const ObjectXml& how, ObjectPath& path) {
    if (how.path_level < XmlPathLevel::kNamespace) return {};
    if (how.namespace_path.empty()) {
        return {WBEM_E_INVALID_OBJECT, "an object of class " + path.class_name +
                                           " belongs to no namespace: ask for path level 0 or 1"};
    }
    path.namespace_path = how.namespace_path;
    if (how.path_level == XmlPathLevel::kServer) path.server = how.server;
    return {};
}

Result<ObjectPath> PathOf(const Instance& instance) {
    const ClassDefinition& definition = *instance.Class();
    if (definition.Keys().empty() && !definition.IsSingleton()) {
        return Status(WBEM_E_INVALID_OBJECT, "class " + definition.Name() +
                                                 " has no key property, so its objects have no path: ask for "
                                                 "path level 0");
    }
    Result<std::string> text = RelativePathOf(instance);
    if (!text.ok()) {
        return Status(WBEM_E_INVALID_OBJECT,
                      "the object has no path yet: " + text.status().reason() + ": ask for path level 0");
    }
    return ParseObjectPath(*text);
}

}  // namespace

Status WriteInstanceXml(const Instance& instance, const ObjectXml& how, XmlWriter& out) {
    if (how.path_level == XmlPathLevel::kNone) return ObjectWriter(how, 0, out).Write(instance);
    SERVICE_ASSIGN_OR_RETURN(ObjectPath path, PathOf(instance));
    SERVICE_RETURN_IF_ERROR(Locate(how, path));
    out.Start(PathLevelElement(how.path_level));
    WritePathXml(path, instance.Class().get(), out);
    SERVICE_RETURN_IF_ERROR(ObjectWriter(how, 0, out).Write(instance));
    out.End();
    return {};
}

Status WriteClassXml(std::string_view name, const ClassDefinition& definition, const ObjectXml& how,
                     XmlWriter& out) {
    if (how.path_level == XmlPathLevel::kNone) return ObjectWriter(how, 0, out).Write(name, definition);
    ObjectPath path;
    path.class_name = name;
    SERVICE_RETURN_IF_ERROR(Locate(how, path));
    out.Start(PathLevelElement(how.path_level));
    // A class's own element says its name already, so there is no element that names it in front of it.
    if (how.path_level != XmlPathLevel::kName) WritePathXml(path, nullptr, out);
    SERVICE_RETURN_IF_ERROR(ObjectWriter(how, 0, out).Write(name, definition));
    out.End();
    return {};
}

}  // namespace service
