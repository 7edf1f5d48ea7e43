// Very long keys that a store cannot tell apart by prefix and hash.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace service {

// Keys with one and the same XXH3: where four bytes of the text equal the hash's secret they wipe out the
// four behind them, which then count only by their sum over two stripes.
inline std::vector<std::string> KeysOfOneHash(size_t count) {
    constexpr size_t kStripe = 64;
    std::vector<std::string> keys;
    for (size_t i = 0; i < count; ++i) {
        std::string key(700, 'k');
        const std::pair<size_t, uint32_t> stripes[] = {{7, static_cast<uint32_t>(i)},
                                                       {8, static_cast<uint32_t>(1'000 - i)}};
        for (const auto& [stripe, value] : stripes) {
            std::memcpy(key.data() + stripe * kStripe, XXH3_kSecret + stripe * 8, 4);
            std::memcpy(key.data() + stripe * kStripe + 4, &value, 4);
        }
        keys.push_back(key);
    }
    return keys;
}

}  // namespace service
