// The layout of records; integers are little-endian, offsets count from the start of the payload.
//
//   instance  = u32 checksum, body                      ; XXH64 of the body, its low 32 bits
//   body      = u8 format (1), u8 zero, u16 count, u32 class-id, count * entry, payload
//   entry     = u32 class-id, u16 ordinal, u8 cim-type, u8 flags, u32 end
//                                                       ; the property's PropertyId; flags: 1 null, 2 array;
//                                                       ; its bytes run from the previous entry's `end` to
//                                                       ; its own, and are as in value_codec.h
//   embedded  = u16 length, class name, body
//
// Only properties that were set have an entry: the others read as their class's default, whatever it becomes.
#include "service/store/record_codec.h"

#include <cstring>
#include <utility>

#include "service/model/limits.h"
#include "service/store/bytes.h"
#include "service/store/value_codec.h"

namespace service {
namespace {

constexpr uint8_t kInstanceFormat = 1;
constexpr uint8_t kNullFlag = 1;
constexpr uint8_t kArrayFlag = 2;
constexpr size_t kHeaderBytes = 8;
constexpr size_t kEntryBytes = 12;

Status AppendBody(const Instance& instance, std::string& out);

Status AppendEmbedded(const Instance& object, std::string& out) {
    const std::string& name = object.Class()->Name();
    ByteWriter(out).U16(static_cast<uint16_t>(name.size()));
    out.append(name);
    return AppendBody(object, out);
}

Status AppendBody(const Instance& instance, std::string& out) {
    constexpr auto append = [](const Instance& object, std::string& bytes) {
        return AppendEmbedded(object, bytes);
    };
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
        if (!IsNull(view)) SERVICE_RETURN_IF_ERROR(AppendValue(property.type.type, view, out, append));
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
        if (entry.is_array) return ReadElements(property, bytes, storage, view);
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

    Status ReadElements(const PropertyDefinition& property, std::string_view bytes, Value& storage,
                        ValueView& view) const {
        Status fault;
        const auto read = [&](std::string_view embedded, ObjectPtr& object) {
            Result<ObjectPtr> decoded = DecodeEmbedded(embedded, classes_);
            if (!decoded.ok()) fault = std::move(decoded).status();
            if (fault.ok()) object = std::move(*decoded);
            return fault.ok();
        };
        Array array;
        if (!ReadArray(property.type.type, bytes, read, array)) {
            if (fault.ok()) fault = DamagedProperty(property);
            return fault;
        }
        storage = std::move(array);
        view = ViewOf(storage);
        return {};
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

}  // namespace service
