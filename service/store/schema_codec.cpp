// The layout of the records; integers are little-endian.
//
//   class     = u32 checksum, u8 format, u32 class-id, text name, text superclass, u32 next-ordinal,
//               qualifiers, u32 count, count * property, [ u32 count, count * method ]
//                                                       ; format 1 without methods, 2 with them
//   property  = text name, type, u32 ordinal, u8 has-default, [ value ], qualifiers
//   method    = text name, u8 has-return, [ type ], u32 count, count * parameter, qualifiers
//   parameter = text name, type, qualifiers
//   qualifiers= u32 count, count * ( text name, type, u32 flavor, value )
//   type      = u8 cim-type, u8 is-array, u32 max-elements, text class name
//   value     = u8 flags (1 null), [ text bytes ]       ; the bytes as in value_codec.h
//   text      = u32 length, UTF-8
//
//   qualifier = u32 checksum, u8 format (1), text name, type, u32 scope, u32 flavor, value
//                                                       ; the declaration of one
#include "service/store/schema_codec.h"

#include <type_traits>
#include <utility>
#include <vector>

#include "service/store/bytes.h"
#include "service/store/value_codec.h"

namespace service {
namespace {

constexpr uint8_t kClassFormat = 1;
constexpr uint8_t kClassWithMethodsFormat = 2;
constexpr uint8_t kQualifierFormat = 1;
constexpr uint8_t kNullFlag = 1;

void WriteType(ByteWriter& out, const PropertyType& type) {
    out.U8(static_cast<uint8_t>(type.type));
    out.U8(type.is_array ? 1 : 0);
    out.U32(type.max_elements);
    out.Text(type.class_name);
}

bool ReadType(ByteReader& in, PropertyType& type) {
    const uint8_t code = in.U8();
    type.type = static_cast<CimType>(code);
    type.is_array = in.U8() != 0;
    type.max_elements = in.U32();
    type.class_name = in.Text();
    return in.ok() && IsCimType(code);
}

// The class of an object in a default could change under the record, which says nothing of its shape.
Status WriteValue(ByteWriter& out, const PropertyType& type, const Value& value) {
    out.U8(IsNull(value) ? kNullFlag : 0);
    if (IsNull(value)) return {};
    const auto refuse = [](const Instance&, std::string&) -> Status {
        return {WBEM_E_NOT_SUPPORTED,
                "a default value that is an embedded object is not supported: leave the "
                "default out, and give each instance its own"};
    };
    std::string bytes;
    SERVICE_RETURN_IF_ERROR(AppendValue(type.type, ViewOf(value), bytes, refuse));
    out.Text(bytes);
    return {};
}

Value OwnedScalar(const ValueView& view) {
    return std::visit(
        [](const auto& held) -> Value {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_arithmetic_v<Held>) return held;
            return {};
        },
        view);
}

bool ReadValue(ByteReader& in, const PropertyType& type, Value& value) {
    if (in.U8() & kNullFlag) return in.ok();
    const std::string_view bytes = in.Text();
    if (!in.ok() || RepresentationOf(type.type) == Representation::kObject) return false;
    if (type.is_array) {
        const auto no_object = [](std::string_view, ObjectPtr&) { return false; };
        return ReadArray(type.type, bytes, no_object, value.emplace<Array>());
    }
    if (const size_t size = FixedSizeOf(type.type); size != 0) {
        if (bytes.size() != size) return false;
        value = OwnedScalar(LoadFixed(type.type, bytes));
    } else {
        value = std::string(bytes);
    }
    return true;
}

Status WriteQualifiers(ByteWriter& out, const std::vector<Qualifier>& qualifiers) {
    out.U32(static_cast<uint32_t>(qualifiers.size()));
    for (const Qualifier& qualifier : qualifiers) {
        out.Text(qualifier.name);
        WriteType(out, qualifier.type);
        out.U32(qualifier.flavor);
        SERVICE_RETURN_IF_ERROR(WriteValue(out, qualifier.type, qualifier.value));
    }
    return {};
}

bool ReadQualifiers(ByteReader& in, std::vector<Qualifier>& qualifiers) {
    const uint32_t count = in.U32();
    for (uint32_t i = 0; i < count && in.ok(); ++i) {
        Qualifier qualifier;
        qualifier.name = in.Text();
        qualifier.value = {};
        if (!ReadType(in, qualifier.type)) return false;
        qualifier.flavor = in.U32();
        if (!ReadValue(in, qualifier.type, qualifier.value)) return false;
        qualifiers.push_back(std::move(qualifier));
    }
    return in.ok();
}

Status WriteMethod(ByteWriter& out, const MethodDeclaration& method) {
    out.Text(method.name);
    out.U8(method.return_type ? 1 : 0);
    if (method.return_type) WriteType(out, *method.return_type);
    out.U32(static_cast<uint32_t>(method.parameters.size()));
    for (const ParameterDeclaration& parameter : method.parameters) {
        out.Text(parameter.name);
        WriteType(out, parameter.type);
        SERVICE_RETURN_IF_ERROR(WriteQualifiers(out, parameter.qualifiers));
    }
    return WriteQualifiers(out, method.qualifiers);
}

bool ReadMethod(ByteReader& in, MethodDeclaration& method) {
    method.name = in.Text();
    if (in.U8() != 0 && !ReadType(in, method.return_type.emplace())) return false;
    const uint32_t count = in.U32();
    for (uint32_t i = 0; i < count && in.ok(); ++i) {
        ParameterDeclaration& parameter = method.parameters.emplace_back();
        parameter.name = in.Text();
        if (!ReadType(in, parameter.type) || !ReadQualifiers(in, parameter.qualifiers)) return false;
    }
    return ReadQualifiers(in, method.qualifiers);
}

bool ReadClass(ByteReader& in, ClassRecord& record) {
    const uint8_t format = in.U8();
    if (format != kClassFormat && format != kClassWithMethodsFormat) return false;
    record.class_id = in.U32();
    ClassDeclaration& declaration = record.declaration;
    declaration.name = in.Text();
    declaration.superclass = in.Text();
    declaration.next_ordinal = in.U32();
    if (!ReadQualifiers(in, declaration.qualifiers)) return false;
    const uint32_t count = in.U32();
    for (uint32_t i = 0; i < count && in.ok(); ++i) {
        PropertyDeclaration property;
        property.name = in.Text();
        if (!ReadType(in, property.type)) return false;
        property.ordinal = in.U32();
        if (in.U8() != 0 && !ReadValue(in, property.type, property.default_value)) return false;
        if (!ReadQualifiers(in, property.qualifiers)) return false;
        declaration.properties.push_back(std::move(property));
    }
    const uint32_t methods = format == kClassFormat ? 0 : in.U32();
    for (uint32_t i = 0; i < methods && in.ok(); ++i) {
        if (!ReadMethod(in, declaration.methods.emplace_back())) return false;
    }
    return in.ok() && in.AtEnd();
}

}  // namespace

Status EncodeClass(const ClassRecord& record, std::string& bytes) {
    const ClassDeclaration& declaration = record.declaration;
    const size_t start = bytes.size();
    ByteWriter out(bytes);
    out.U32(0);
    out.U8(declaration.methods.empty() ? kClassFormat : kClassWithMethodsFormat);
    out.U32(record.class_id);
    out.Text(declaration.name);
    out.Text(declaration.superclass);
    out.U32(declaration.next_ordinal);
    SERVICE_RETURN_IF_ERROR(WriteQualifiers(out, declaration.qualifiers));
    out.U32(static_cast<uint32_t>(declaration.properties.size()));
    for (const PropertyDeclaration& property : declaration.properties) {
        out.Text(property.name);
        WriteType(out, property.type);
        out.U32(property.ordinal);
        const bool has_default = !IsNull(property.default_value);
        out.U8(has_default ? 1 : 0);
        if (has_default) SERVICE_RETURN_IF_ERROR(WriteValue(out, property.type, property.default_value));
        SERVICE_RETURN_IF_ERROR(WriteQualifiers(out, property.qualifiers));
    }
    if (!declaration.methods.empty()) {
        out.U32(static_cast<uint32_t>(declaration.methods.size()));
        for (const MethodDeclaration& method : declaration.methods)
            SERVICE_RETURN_IF_ERROR(WriteMethod(out, method));
    }
    out.PatchU32(start, ChecksumOf(std::string_view(bytes).substr(start + kChecksumBytes)));
    return {};
}

Result<ClassRecord> DecodeClass(std::string_view bytes) {
    ByteReader in(bytes);
    const uint32_t checksum = in.U32();
    ClassRecord record;
    if (!in.ok() || checksum != ChecksumOf(in.rest()) || !ReadClass(in, record)) {
        return Damaged("the record of a class");
    }
    return record;
}

Status EncodeQualifierDeclaration(const QualifierDeclaration& declaration, std::string& bytes) {
    const size_t start = bytes.size();
    ByteWriter out(bytes);
    out.U32(0);
    out.U8(kQualifierFormat);
    out.Text(declaration.name);
    WriteType(out, declaration.type);
    out.U32(declaration.scope);
    out.U32(declaration.flavor);
    SERVICE_RETURN_IF_ERROR(WriteValue(out, declaration.type, declaration.default_value));
    out.PatchU32(start, ChecksumOf(std::string_view(bytes).substr(start + kChecksumBytes)));
    return {};
}

Result<QualifierDeclaration> DecodeQualifierDeclaration(std::string_view bytes) {
    ByteReader in(bytes);
    const uint32_t checksum = in.U32();
    const bool is_whole = in.ok() && checksum == ChecksumOf(in.rest());
    QualifierDeclaration declaration;
    if (!is_whole || in.U8() != kQualifierFormat) return Damaged("the declaration of a qualifier");
    declaration.name = in.Text();
    const bool has_type = ReadType(in, declaration.type);
    declaration.scope = in.U32();
    declaration.flavor = in.U32();
    if (!has_type || !ReadValue(in, declaration.type, declaration.default_value) || !in.AtEnd())
        return Damaged("the declaration of a qualifier");
    return declaration;
}

}  // namespace service
