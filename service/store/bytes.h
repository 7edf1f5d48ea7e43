// Reading and writing the bytes of records: little-endian integers and counted texts, bounds checked.
// Only for service/store.
//
//   ByteWriter out(record);   out.U32(7);   out.Text("name");
//   ByteReader in(record);    uint32_t n = in.U32();   if (!in.ok()) ...   // cut short
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace service {

static_assert(std::endian::native == std::endian::little, "records are little-endian");

class ByteWriter {
 public:
    explicit ByteWriter(std::string& out) noexcept : out_(out) {}

    void U8(uint8_t value) { out_.push_back(static_cast<char>(value)); }
    void U16(uint16_t value) { Fixed(value); }
    void U32(uint32_t value) { Fixed(value); }
    void U64(uint64_t value) { Fixed(value); }
    void Raw(std::string_view bytes) { out_.append(bytes); }
    void Text(std::string_view text) {
        U32(static_cast<uint32_t>(text.size()));
        Raw(text);
    }
    size_t position() const noexcept { return out_.size(); }
    void PatchU32(size_t position, uint32_t value) noexcept {
        std::memcpy(out_.data() + position, &value, sizeof value);
    }

    template <typename T>
    void Fixed(T value) {
        out_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }

 private:
    std::string& out_;
};

// After the first read past the end every read yields zero and ok() stays false.
class ByteReader {
 public:
    explicit ByteReader(std::string_view bytes) noexcept : rest_(bytes) {}

    bool ok() const noexcept { return ok_; }
    bool AtEnd() const noexcept { return rest_.empty(); }
    std::string_view rest() const noexcept { return rest_; }

    uint8_t U8() noexcept { return Fixed<uint8_t>(); }
    uint16_t U16() noexcept { return Fixed<uint16_t>(); }
    uint32_t U32() noexcept { return Fixed<uint32_t>(); }
    uint64_t U64() noexcept { return Fixed<uint64_t>(); }
    std::string_view Raw(size_t count) noexcept {
        if (count > rest_.size()) {
            Fail();
            return {};
        }
        const std::string_view bytes = rest_.substr(0, count);
        rest_.remove_prefix(count);
        return bytes;
    }
    std::string_view Text() noexcept { return Raw(U32()); }

    template <typename T>
    T Fixed() noexcept {
        const std::string_view bytes = Raw(sizeof(T));
        T value{};
        if (ok_) std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }

 private:
    void Fail() noexcept {
        ok_ = false;
        rest_ = {};
    }

    std::string_view rest_;
    bool ok_ = true;
};

}  // namespace service
