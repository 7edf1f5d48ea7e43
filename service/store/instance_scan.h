// InstanceScan: the instances of some classes as they were at one moment, read piece by piece while others
// write. Only for service/store.
//
//   store.Read([&](StoreReader& reader) { return scan.Begin(reader, {class_id}); });
//   while (!scan.AtEnd())
//       store.Read([&](StoreReader& reader) { return scan.Read(reader, visit); });
//
// Between two reads it holds nothing of the store: no transaction, which would keep every page that others
// replace from being used again, and no place among the readers. What was changed meanwhile is undone from
// the change log: it has each instance as it was before. So a scan may be left alone for as long as it
// pleases; only when the log has lost changes that were made since its last read, or when more than
// kMaxUndoneBytes of what is still to be read were changed, can it not go on, and says so.
//
// A scan belongs to one thread at a time. Copies go on independently.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/model/function_ref.h"
#include "service/model/status.h"
#include "service/store/store.h"

namespace service {

class InstanceScan {
 public:
    static constexpr size_t kMaxUndoneBytes = size_t{64} << 20;

    // At the end until it was begun.
    InstanceScan() = default;

    // Of the state that `reader` has, class by class in the order given.
    Status Begin(StoreReader& reader, std::vector<uint32_t> class_ids);

    // Visits the records that come next, until `visit` returns false or there is none. Every record is
    // visited once, in one read or another; `class_index` tells its class. The record is valid during the
    // visit. A visit that returned false may be followed by those of a few records more that cannot be kept
    // apart. After a fault, and after an exception of `visit`, the scan is at its end.
    Status Read(StoreReader& reader, FunctionRef<bool(size_t class_index, std::string_view record)> visit);

    bool AtEnd() const noexcept { return class_index_ >= class_ids_.size(); }

 private:
    struct Where {
        size_t class_index;
        std::string place;
        std::string key;
        auto operator<=>(const Where&) const = default;
    };
    using Visit = FunctionRef<bool(size_t class_index, std::string_view record)>;

    Status UndoChanges(StoreReader& reader);
    Status ReadClass(StoreReader& reader, Visit visit, bool& is_enough);
    void VisitUndone(const std::string_view* below, Visit visit, bool& is_enough);
    bool IsUndone(const InstanceView& found) const;

    std::vector<uint32_t> class_ids_;
    size_t class_index_ = 0;
    std::string place_;  // where the last one visited is; those after it are still to come

    uint64_t state_ = 0;        // the state seen last
    uint64_t last_change_ = 0;  // and its last change
    // What was changed since the beginning, of that which is still to come, as it was; nothing for an
    // instance that was not there.
    std::map<Where, std::optional<std::string>> undone_;
    size_t undone_bytes_ = 0;
};

}  // namespace service
