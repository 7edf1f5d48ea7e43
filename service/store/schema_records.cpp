#include "service/store/schema_records.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "service/model/text.h"
#include "service/store/bytes.h"

namespace service {
namespace {

constexpr size_t kClassPrefixBytes = 1 + sizeof(uint32_t);

uint32_t ChecksumOf(std::string_view bytes) noexcept {
    return static_cast<uint32_t>(XXH64(bytes.data(), bytes.size(), 0));
}

std::string PrefixOf(char tag, uint32_t namespace_id) {
    std::string key(1, tag);
    for (int shift = 24; shift >= 0; shift -= 8)
        key.push_back(static_cast<char>(namespace_id >> shift));
    return key;
}

}  // namespace

std::string NamespaceKey(std::string_view path) {
    std::string key(1, kNamespaceTag);
    AppendFolded(path, key);
    return key;
}

std::string ClassPrefix(uint32_t namespace_id) {
    return PrefixOf(kClassTag, namespace_id);
}

std::string ClassKey(uint32_t namespace_id, std::string_view name) {
    std::string key = ClassPrefix(namespace_id);
    AppendFolded(name, key);
    return key;
}

std::string QualifierPrefix(uint32_t namespace_id) {
    return PrefixOf(kQualifierTag, namespace_id);
}

std::string QualifierKey(uint32_t namespace_id, std::string_view name) {
    std::string key = QualifierPrefix(namespace_id);
    AppendFolded(name, key);
    return key;
}

bool NamespaceIdOfClassKey(std::string_view key, uint32_t& namespace_id) noexcept {
    if (key.size() < kClassPrefixBytes || key[0] != kClassTag) return false;
    namespace_id = 0;
    for (size_t i = 1; i < kClassPrefixBytes; ++i)
        namespace_id = namespace_id << 8 | static_cast<uint8_t>(key[i]);
    return true;
}

void EncodeNamespace(const Namespace& space, std::string& record) {
    ByteWriter out(record);
    out.U32(space.id);
    out.Text(space.path);
    out.U32(ChecksumOf(record));
}

bool DecodeNamespace(std::string_view record, Namespace& space) {
    ByteReader in(record);
    space.id = in.U32();
    space.path = in.Text();
    if (in.ok() && in.AtEnd()) return true;
    const std::string_view checked = record.substr(0, record.size() - in.rest().size());
    return in.U32() == ChecksumOf(checked) && in.ok() && in.AtEnd();
}

}  // namespace service
