// The layout of records; integers are little-endian, offsets count from the start of the payload.
//
//   instance  = u32 checksum, body                      ; XXH64 of the body, its low 32 bits
//   body      = u8 format (1), u8 zero, u16 count, u32 class-id, count * entry, payload
//   entry     = u32 class-id, u16 ordinal, u8 cim-type, u8 flags, u32 end
//                                                       ; the property's PropertyId; flags: 1 null, 2 array;
//                                                       ; its bytes run from the previous entry's end to
//                                                       `end`
//   scalar    = 1, 2, 4 or 8 bytes for booleans and numbers, UTF-8 for text, embedded for objects
//   array     = u32 count, fixed-array / text-array
//   fixed-array = u8 has-nulls, [ (count + 7) / 8 bytes, a bit set for a null ], count * scalar
//   text-array  = count * u32 end-and-null, bytes       ; for text and objects; the top bit marks a null
//   embedded  = u16 length, class name, body
//
//   class     = u32 checksum, u8 format, u32 class-id, text name, text superclass, u32 next-ordinal,
//               qualifiers, u32 count, count * property, [ u32 count, count * method ]
//                                                       ; format 1 without methods, 2 with them
//   property  = text name, type, u32 ordinal, u8 has-default, [ value ], qualifiers
//   method    = text name, u8 has-return, [ type ], u32 count, count * parameter, qualifiers
//   parameter = text name, type, qualifiers
//   qualifiers= u32 count, count * ( text name, type, u32 flavor, value )
//   type      = u8 cim-type, u8 is-array, u32 max-elements, text class name
//   value     = u8 flags (1 null), [ text bytes ]       ; the bytes as an instance holds them
//   text      = u32 length, UTF-8
//
//   qualifier = u32 checksum, u8 format (1), text name, type, u32 scope, u32 flavor, value
//                                                       ; the declaration of one
//
// Only properties that were set have an entry: the others read as their class's default, whatever it becomes.
#include "service/store/record_codec.h"

#include <bit>
#include <utility>
#include <vector>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "service/model/limits.h"
#include "service/model/text.h"
#include "service/store/bytes.h"

namespace service {
namespace {

constexpr uint8_t kInstanceFormat = 1;
constexpr uint8_t kClassFormat = 1;
constexpr uint8_t kClassWithMethodsFormat = 2;
constexpr uint8_t kQualifierFormat = 1;
constexpr uint8_t kNullFlag = 1;
constexpr uint8_t kArrayFlag = 2;
constexpr size_t kChecksumBytes = 4;
constexpr size_t kHeaderBytes = 8;
constexpr size_t kEntryBytes = 12;
constexpr uint32_t kNullElement = 0x8000'0000;

uint32_t ChecksumOf(std::string_view bytes) noexcept {
    return static_cast<uint32_t>(XXH64(bytes.data(), bytes.size(), 0));
}

Status Damaged(const std::string& what) {
    return {WBEM_E_CRITICAL_ERROR,
            what + " in the store is damaged: restore the store from a backup, or delete it"};
}

// Bytes of one element of a type that has a fixed size; 0 for text and objects.
size_t FixedSizeOf(CimType type) noexcept {
    switch (type) {
        case CimType::kSint8:
        case CimType::kUint8:
        case CimType::kBoolean:
            return 1;
        case CimType::kSint16:
        case CimType::kUint16:
        case CimType::kChar16:
            return 2;
        case CimType::kSint32:
        case CimType::kUint32:
        case CimType::kReal32:
            return 4;
        case CimType::kSint64:
        case CimType::kUint64:
        case CimType::kReal64:
            return 8;
        default:
            return 0;
    }
}

template <typename Integer>
Integer Load(std::string_view bytes) noexcept {
    Integer value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

// `bytes` has the size that FixedSizeOf gives for the type.
ValueView LoadFixed(CimType type, std::string_view bytes) noexcept {
    switch (type) {
        case CimType::kSint8:
            return int64_t{Load<int8_t>(bytes)};
        case CimType::kUint8:
            return uint64_t{Load<uint8_t>(bytes)};
        case CimType::kBoolean:
            return Load<uint8_t>(bytes) != 0;
        case CimType::kSint16:
            return int64_t{Load<int16_t>(bytes)};
        case CimType::kUint16:
        case CimType::kChar16:
            return uint64_t{Load<uint16_t>(bytes)};
        case CimType::kSint32:
            return int64_t{Load<int32_t>(bytes)};
        case CimType::kUint32:
            return uint64_t{Load<uint32_t>(bytes)};
        case CimType::kReal32:
            return double{std::bit_cast<float>(Load<uint32_t>(bytes))};
        case CimType::kSint64:
            return Load<int64_t>(bytes);
        case CimType::kUint64:
            return Load<uint64_t>(bytes);
        case CimType::kReal64:
            return std::bit_cast<double>(Load<uint64_t>(bytes));
        default:
            return {};
    }
}

uint64_t BitsOf(CimType type, const ValueView& value) noexcept {
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? 1 : 0;
    if (const auto* number = std::get_if<int64_t>(&value)) return static_cast<uint64_t>(*number);
    if (const auto* number = std::get_if<uint64_t>(&value)) return *number;
    if (const auto* real = std::get_if<double>(&value)) {
        return type == CimType::kReal32 ? std::bit_cast<uint32_t>(static_cast<float>(*real))
                                        : std::bit_cast<uint64_t>(*real);
    }
    return 0;
}

void AppendFixed(CimType type, const ValueView& value, std::string& out) {
    const uint64_t bits = BitsOf(type, value);
    out.append(reinterpret_cast<const char*>(&bits), FixedSizeOf(type));
}

Status AppendBody(const Instance& instance, std::string& out);

Status AppendVariable(const ValueView& value, std::string& out) {
    if (const auto* text = std::get_if<std::string_view>(&value)) {
        out.append(*text);
        return {};
    }
    const Instance& object = ***std::get_if<const ObjectPtr*>(&value);
    const std::string& name = object.Class()->Name();
    ByteWriter(out).U16(static_cast<uint16_t>(name.size()));
    out.append(name);
    return AppendBody(object, out);
}

void AppendFixedArray(CimType type, const Array& array, std::string& out) {
    std::string nulls((array.size() + 7) / 8, '\0');
    bool has_nulls = false;
    for (size_t i = 0; i < array.size(); ++i) {
        if (array[i].index() != 0) continue;
        has_nulls = true;
        nulls[i / 8] = static_cast<char>(nulls[i / 8] | (1 << (i % 8)));
    }
    out.push_back(has_nulls ? 1 : 0);
    if (has_nulls) out.append(nulls);
    for (const Scalar& element : array)
        AppendFixed(type, ViewOf(element), out);
}

Status AppendVariableArray(const Array& array, std::string& out) {
    const size_t ends = out.size();
    out.append(array.size() * sizeof(uint32_t), '\0');
    const size_t start = out.size();
    for (size_t i = 0; i < array.size(); ++i) {
        const bool is_null = array[i].index() == 0;
        if (!is_null) SERVICE_RETURN_IF_ERROR(AppendVariable(ViewOf(array[i]), out));
        if (out.size() > kMaxRecordBytes)
            return {WBEM_E_QUOTA_VIOLATION, "an array is larger than a record may be"};
        const auto end = static_cast<uint32_t>(out.size() - start) | (is_null ? kNullElement : 0);
        ByteWriter(out).PatchU32(ends + i * sizeof(uint32_t), end);
    }
    return {};
}

Status AppendValue(CimType type, const ValueView& value, std::string& out) {
    if (const auto* array = std::get_if<const Array*>(&value)) {
        ByteWriter(out).U32(static_cast<uint32_t>((*array)->size()));
        if (FixedSizeOf(type) == 0) return AppendVariableArray(**array, out);
        AppendFixedArray(type, **array, out);
        return {};
    }
    if (FixedSizeOf(type) == 0) return AppendVariable(value, out);
    AppendFixed(type, value, out);
    return {};
}

Status AppendBody(const Instance& instance, std::string& out) {
    const auto& properties = instance.Class()->Properties();
    const size_t start = out.size();
    out.append(kHeaderBytes + properties.size() * kEntryBytes, '\0');
    const size_t payload = out.size();

    std::string entries;
    entries.reserve(properties.size() * kEntryBytes);
    uint16_t count = 0;
    for (size_t i = 0; i < properties.size(); ++i) {
        const PropertyDefinition& property = properties[i];
        Value storage;
        ValueView view;
        bool is_set = false;
        SERVICE_RETURN_IF_ERROR(instance.ReadOwn(i, is_set, storage, view));
        if (!is_set) continue;
        if (!IsNull(view)) SERVICE_RETURN_IF_ERROR(AppendValue(property.type.type, view, out));
        if (out.size() - payload > kMaxRecordBytes) {
            return {WBEM_E_QUOTA_VIOLATION, "an instance of class " + instance.Class()->Name() +
                                                " is larger than " + std::to_string(kMaxRecordBytes) +
                                                " bytes at property " + property.name};
        }
        ByteWriter entry(entries);
        entry.U32(property.id.class_id);
        entry.U16(static_cast<uint16_t>(property.id.ordinal));
        entry.U8(static_cast<uint8_t>(property.type.type));
        entry.U8(
            static_cast<uint8_t>((IsNull(view) ? kNullFlag : 0) | (property.type.is_array ? kArrayFlag : 0)));
        entry.U32(static_cast<uint32_t>(out.size() - payload));
        ++count;
    }

    std::string header;
    ByteWriter writer(header);
    writer.U8(kInstanceFormat);
    writer.U8(0);
    writer.U16(count);
    writer.U32(instance.Class()->Id());
    const size_t unused = properties.size() * kEntryBytes - entries.size();
    if (unused != 0) out.erase(start + kHeaderBytes + entries.size(), unused);
    out.replace(start, kHeaderBytes, header);
    out.replace(start + kHeaderBytes, entries.size(), entries);
    return {};
}

Result<ObjectPtr> DecodeEmbedded(std::string_view bytes, const std::shared_ptr<const ClassSource>& classes);

// One record's bytes. Every read checks the bounds of what it touches, so that not even a record with a
// right checksum and wrong contents leads outside it.
class RecordProperties final : public StoredProperties {
 public:
    // `body` is without the checksum.
    RecordProperties(std::string_view body, std::shared_ptr<const ClassSource> classes)
        : body_(body), classes_(std::move(classes)) {}

    bool IsWhole() const noexcept {
        if (body_.size() < kHeaderBytes || static_cast<uint8_t>(body_[0]) != kInstanceFormat) return false;
        return body_.size() - kHeaderBytes >= size_t{Count()} * kEntryBytes;
    }

    bool Has(const PropertyDefinition& property, size_t index) const noexcept override {
        const size_t at = FindEntry(property, index);
        return at != kNotThere;
    }

    Status Read(const PropertyDefinition& property, size_t index, bool& is_set, Value& storage,
                ValueView& view) const override {
        const size_t at = FindEntry(property, index);
        is_set = at != kNotThere;
        if (!is_set) return {};
        const Entry entry = EntryAt(at);
        if (entry.is_null) {
            view = std::monostate{};
            return {};
        }
        const std::string_view payload = Payload();
        const uint32_t start = at == 0 ? 0 : EntryAt(at - 1).end;
        if (start > entry.end || entry.end > payload.size()) return DamagedProperty(property);
        const std::string_view bytes(payload.data() + start, entry.end - start);
        if (entry.is_array) return ReadArray(property, bytes, storage, view);
        if (RepresentationOf(entry.type) == Representation::kText) {
            view = bytes;
            return {};
        }
        if (const size_t size = FixedSizeOf(entry.type); size != 0) {
            if (bytes.size() != size) return DamagedProperty(property);
            view = LoadFixed(entry.type, bytes);
            return {};
        }
        SERVICE_ASSIGN_OR_RETURN(storage, DecodeEmbedded(bytes, classes_));
        view = ViewOf(storage);
        return {};
    }

 private:
    struct Entry {
        PropertyId id;
        CimType type;
        bool is_null;
        bool is_array;
        uint32_t end;
    };
    static constexpr size_t kNotThere = static_cast<size_t>(-1);

    uint16_t Count() const noexcept { return Load<uint16_t>({body_.data() + 2, 2}); }

    std::string_view Payload() const noexcept {
        const size_t start = kHeaderBytes + size_t{Count()} * kEntryBytes;
        return {body_.data() + start, body_.size() - start};
    }

    // `index` is below Count(), so the entry lies within the body: see IsWhole.
    Entry EntryAt(size_t index) const noexcept {
        const char* bytes = body_.data() + kHeaderBytes + index * kEntryBytes;
        const auto flags = static_cast<uint8_t>(bytes[7]);
        return {IdAt(bytes), static_cast<CimType>(static_cast<uint8_t>(bytes[6])), (flags & kNullFlag) != 0,
                (flags & kArrayFlag) != 0, EndAt(bytes)};
    }

    static PropertyId IdAt(const char* entry) noexcept {
        uint32_t class_id = 0;
        uint16_t ordinal = 0;
        std::memcpy(&class_id, entry, sizeof class_id);
        std::memcpy(&ordinal, entry + 4, sizeof ordinal);
        return {class_id, ordinal};
    }

    static uint32_t EndAt(const char* entry) noexcept {
        uint32_t end = 0;
        std::memcpy(&end, entry + 8, sizeof end);
        return end;
    }

    // An instance with all its properties set has them in its class's order, so the entry is mostly found at
    // once. A value stored while the property had another type is as good as never set.
    size_t FindEntry(const PropertyDefinition& property, size_t hint) const noexcept {
        const size_t count = Count();
        size_t at = hint;
        if (at >= count || EntryAt(at).id != property.id) {
            for (at = 0; at < count && EntryAt(at).id != property.id;)
                ++at;
        }
        if (at == count) return kNotThere;
        const Entry entry = EntryAt(at);
        const bool is_same_type =
            entry.type == property.type.type && entry.is_array == property.type.is_array;
        return is_same_type ? at : kNotThere;
    }

    Status DamagedProperty(const PropertyDefinition& property) const {
        return Damaged("the value of property " + property.name + " of an instance of class " +
                       property.origin);
    }

    Status ReadArray(const PropertyDefinition& property, std::string_view bytes, Value& storage,
                     ValueView& view) const {
        ByteReader in(bytes);
        const uint32_t count = in.U32();
        const CimType type = property.type.type;
        // Every element has at least a byte of its own, so a count beyond the bytes is a damaged one.
        if (!in.ok() || count > in.rest().size()) return DamagedProperty(property);
        Array array;
        array.reserve(count);
        SERVICE_RETURN_IF_ERROR(FixedSizeOf(type) ? ReadFixedElements(property, in, count, array)
                                                  : ReadVariableElements(property, in, count, array));
        storage = std::move(array);
        view = ViewOf(storage);
        return {};
    }

    Status ReadFixedElements(const PropertyDefinition& property, ByteReader& in, uint32_t count,
                             Array& array) const {
        const CimType type = property.type.type;
        const bool has_nulls = in.U8() != 0;
        const std::string_view nulls = has_nulls ? in.Raw((size_t{count} + 7) / 8) : std::string_view();
        for (uint32_t i = 0; i < count; ++i) {
            const std::string_view element = in.Raw(FixedSizeOf(type));
            if (!in.ok()) return DamagedProperty(property);
            const bool is_null = has_nulls && (static_cast<uint8_t>(nulls[i / 8]) >> (i % 8) & 1) != 0;
            if (is_null) {
                array.emplace_back();
                continue;
            }
            std::visit(
                [&](const auto& held) {
                    using Held = std::decay_t<decltype(held)>;
                    if constexpr (std::is_arithmetic_v<Held>) array.emplace_back(held);
                },
                LoadFixed(type, element));
        }
        return in.AtEnd() ? Status() : DamagedProperty(property);
    }

    Status ReadVariableElements(const PropertyDefinition& property, ByteReader& in, uint32_t count,
                                Array& array) const {
        const std::string_view ends = in.Raw(size_t{count} * sizeof(uint32_t));
        if (!in.ok()) return DamagedProperty(property);
        const std::string_view elements = in.rest();
        uint32_t start = 0;
        for (uint32_t i = 0; i < count; ++i) {
            const auto end_and_null = Load<uint32_t>(ends.substr(i * sizeof(uint32_t)));
            const uint32_t end = end_and_null & ~kNullElement;
            if (end < start || end > elements.size()) return DamagedProperty(property);
            const std::string_view bytes = elements.substr(start, end - start);
            start = end;
            if (end_and_null & kNullElement) {
                array.emplace_back();
            } else if (RepresentationOf(property.type.type) == Representation::kText) {
                array.emplace_back(std::string(bytes));
            } else {
                SERVICE_ASSIGN_OR_RETURN(ObjectPtr object, DecodeEmbedded(bytes, classes_));
                array.emplace_back(std::move(object));
            }
        }
        return start == elements.size() ? Status() : DamagedProperty(property);
    }

    const std::string body_;
    const std::shared_ptr<const ClassSource> classes_;
};

Result<ObjectPtr> DecodeEmbedded(std::string_view bytes, const std::shared_ptr<const ClassSource>& classes) {
    ByteReader in(bytes);
    const std::string_view name = in.Raw(in.U16());
    if (!in.ok() || !classes) return Damaged("an embedded object");
    SERVICE_ASSIGN_OR_RETURN(ClassPtr definition, classes->FindEmbeddedClass(name));
    auto properties = std::make_shared<const RecordProperties>(in.rest(), classes);
    if (!properties->IsWhole()) return Damaged("an embedded object of class " + definition->Name());
    return ObjectPtr(std::make_shared<const Instance>(std::move(definition), std::move(properties)));
}

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

// Defaults and qualifier values hold no objects: CheckDefaults refuses them before they get here.
Status WriteValue(ByteWriter& out, const PropertyType& type, const Value& value) {
    out.U8(IsNull(value) ? kNullFlag : 0);
    if (IsNull(value)) return {};
    if (RepresentationOf(type.type) == Representation::kObject) {
        return {WBEM_E_NOT_SUPPORTED, "a default value that is an embedded object is not supported"};
    }
    std::string bytes;
    SERVICE_RETURN_IF_ERROR(AppendValue(type.type, ViewOf(value), bytes));
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
        PropertyDefinition property;
        property.type = type;
        std::string body;
        ByteWriter writer(body);
        writer.U8(kInstanceFormat);
        writer.U8(0);
        writer.U16(1);
        writer.U32(0);
        writer.U32(0);
        writer.U16(0);
        writer.U8(static_cast<uint8_t>(type.type));
        writer.U8(kArrayFlag);
        writer.U32(static_cast<uint32_t>(bytes.size()));
        writer.Raw(bytes);
        ValueView view;
        bool is_set = false;
        return RecordProperties(body, nullptr).Read(property, 0, is_set, value, view).ok() && is_set;
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

Status EncodeInstance(const Instance& instance, std::string& record) {
    const size_t start = record.size();
    record.append(kChecksumBytes, '\0');
    SERVICE_RETURN_IF_ERROR(AppendBody(instance, record));
    const auto body = std::string_view(record).substr(start + kChecksumBytes);
    ByteWriter(record).PatchU32(start, ChecksumOf(body));
    return {};
}

uint32_t ClassIdOfRecord(std::string_view record) noexcept {
    ByteReader in(record);
    in.Raw(kChecksumBytes + kHeaderBytes - sizeof(uint32_t));
    return in.U32();
}

bool IsWholeRecord(std::string_view record) noexcept {
    ByteReader in(record);
    const uint32_t checksum = in.U32();
    return in.ok() && checksum == ChecksumOf(in.rest());
}

Result<Instance> DecodeInstance(ClassPtr definition, std::string_view record,
                                std::shared_ptr<const ClassSource> classes) {
    if (!IsWholeRecord(record)) return Damaged("the record of an instance of class " + definition->Name());
    auto properties =
        std::make_shared<const RecordProperties>(record.substr(kChecksumBytes), std::move(classes));
    if (!properties->IsWhole()) return Damaged("the record of an instance of class " + definition->Name());
    return Instance(std::move(definition), std::move(properties));
}

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
