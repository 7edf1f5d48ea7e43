#include "service/store/value_codec.h"

#include <type_traits>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "service/model/limits.h"
#include "service/store/bytes.h"

namespace service {
namespace {

constexpr uint32_t kNullElement = 0x8000'0000;

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

Status AppendVariable(const ValueView& value, std::string& out, AppendObject append) {
    if (const auto* text = std::get_if<std::string_view>(&value)) {
        out.append(*text);
        return {};
    }
    return append(***std::get_if<const ObjectPtr*>(&value), out);
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

Status AppendVariableArray(const Array& array, std::string& out, AppendObject append) {
    const size_t ends = out.size();
    out.append(array.size() * sizeof(uint32_t), '\0');
    const size_t start = out.size();
    for (size_t i = 0; i < array.size(); ++i) {
        const bool is_null = array[i].index() == 0;
        if (!is_null) SERVICE_RETURN_IF_ERROR(AppendVariable(ViewOf(array[i]), out, append));
        if (out.size() > kMaxRecordBytes)
            return {WBEM_E_QUOTA_VIOLATION, "an array is larger than a record may be"};
        const auto end = static_cast<uint32_t>(out.size() - start) | (is_null ? kNullElement : 0);
        ByteWriter(out).PatchU32(ends + i * sizeof(uint32_t), end);
    }
    return {};
}

bool ReadFixedElements(CimType type, ByteReader& in, uint32_t count, Array& array) {
    const bool has_nulls = in.U8() != 0;
    const std::string_view nulls = has_nulls ? in.Raw((size_t{count} + 7) / 8) : std::string_view();
    for (uint32_t i = 0; i < count; ++i) {
        const std::string_view element = in.Raw(FixedSizeOf(type));
        if (!in.ok()) return false;
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
    return in.AtEnd();
}

bool ReadVariableElements(CimType type, ByteReader& in, uint32_t count, ReadObject read, Array& array) {
    const std::string_view ends = in.Raw(size_t{count} * sizeof(uint32_t));
    if (!in.ok()) return false;
    const std::string_view elements = in.rest();
    uint32_t start = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const auto end_and_null = Load<uint32_t>(ends.substr(i * sizeof(uint32_t)));
        const uint32_t end = end_and_null & ~kNullElement;
        if (end < start || end > elements.size()) return false;
        const std::string_view bytes = elements.substr(start, end - start);
        start = end;
        if (end_and_null & kNullElement) {
            array.emplace_back();
        } else if (RepresentationOf(type) == Representation::kText) {
            array.emplace_back(std::string(bytes));
        } else {
            ObjectPtr object;
            if (!read(bytes, object)) return false;
            array.emplace_back(std::move(object));
        }
    }
    return start == elements.size();
}

}  // namespace

uint32_t ChecksumOf(std::string_view body) noexcept {
    return static_cast<uint32_t>(XXH64(body.data(), body.size(), 0));
}

Status Damaged(const std::string& what) {
    return {WBEM_E_CRITICAL_ERROR,
            what + " in the store is damaged: restore the store from a backup, or delete it"};
}

Status AppendValue(CimType type, const ValueView& value, std::string& out, AppendObject append) {
    if (const auto* array = std::get_if<const Array*>(&value)) {
        ByteWriter(out).U32(static_cast<uint32_t>((*array)->size()));
        if (FixedSizeOf(type) == 0) return AppendVariableArray(**array, out, append);
        AppendFixedArray(type, **array, out);
        return {};
    }
    if (FixedSizeOf(type) == 0) return AppendVariable(value, out, append);
    AppendFixed(type, value, out);
    return {};
}

bool ReadArray(CimType type, std::string_view bytes, ReadObject read, Array& array) {
    ByteReader in(bytes);
    const uint32_t count = in.U32();
    // Every element has at least a byte of its own, so a count beyond the bytes is a damaged one.
    if (!in.ok() || count > in.rest().size()) return false;
    array.reserve(count);
    return FixedSizeOf(type) ? ReadFixedElements(type, in, count, array)
                             : ReadVariableElements(type, in, count, read, array);
}

}  // namespace service
