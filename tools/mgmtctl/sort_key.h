// What a row is sorted by: null first, then numbers by size, dates by moment, texts without regard to the
// case of their letters.
//
//   std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.key < b.key; });
//
// Plain values.
#pragma once

#include <string>

#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

// Arrays and objects have no order.
bool CanSortBy(CIMTYPE type);

class SortKey {
 public:
    SortKey() = default;  // null
    SortKey(CIMTYPE type, const VARIANT& value);

    bool operator<(const SortKey& other) const;

 private:
    enum class Kind { NOTHING, NOT_A_NUMBER, NUMBER, TEXT };

    void SetNumber(long double number);
    void SetText(std::wstring text);

    Kind kind_ = Kind::NOTHING;
    long double number_ = 0;  // holds every 64-bit integer
    std::wstring text_;
};

}  // namespace mgmtctl
