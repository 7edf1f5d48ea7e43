#include "service/store/instance_scan.h"

#include <algorithm>
#include <utility>

namespace service {
namespace {

// What an entry takes besides its texts.
constexpr size_t kUndoneOverhead = 160;

Status TooMuchChanged(const char* why) {
    return {WBEM_E_NOT_AVAILABLE, std::string("the instances can no longer be told as they were when their "
                                              "enumeration began, ") +
                                      why + ": begin it again"};
}

}  // namespace

Status InstanceScan::Begin(StoreReader& reader, std::vector<uint32_t> class_ids) {
    *this = {};
    SERVICE_RETURN_IF_ERROR(reader.LastChange(last_change_));
    state_ = reader.StateNumber();
    class_ids_ = std::move(class_ids);
    return {};
}

Status InstanceScan::Read(StoreReader& reader, Visit visit) {
    InstanceScan going_on = std::exchange(*this, {});
    SERVICE_RETURN_IF_ERROR(going_on.UndoChanges(reader));
    for (bool is_enough = false; !is_enough && !going_on.AtEnd();)
        SERVICE_RETURN_IF_ERROR(going_on.ReadClass(reader, visit, is_enough));
    *this = std::move(going_on);
    return {};
}

// Only the first change of an instance since the beginning counts: it tells how the instance was.
Status InstanceScan::UndoChanges(StoreReader& reader) {
    if (reader.StateNumber() == state_) return {};
    bool is_complete = false;
    SERVICE_RETURN_IF_ERROR(reader.ScanChanges(last_change_, is_complete, [&](const ChangeView& change) {
        last_change_ = change.number;
        const auto known = std::find(class_ids_.begin() + static_cast<std::ptrdiff_t>(class_index_),
                                     class_ids_.end(), change.class_id);
        if (known == class_ids_.end()) return true;
        Where where{static_cast<size_t>(known - class_ids_.begin()),
                    reader.PlaceOf(change.class_id, change.key), std::string(change.key)};
        if (where.class_index == class_index_ && where.place <= place_) return true;
        const auto [entry, is_first] = undone_.try_emplace(std::move(where));
        if (!is_first) return true;
        if (change.kind != ChangeKind::kCreated) entry->second.emplace(change.before);
        undone_bytes_ += kUndoneOverhead + 2 * change.key.size() + change.before.size();
        return undone_bytes_ <= kMaxUndoneBytes;
    }));
    if (!is_complete) return TooMuchChanged("because more was changed meanwhile than the change log keeps");
    if (undone_bytes_ > kMaxUndoneBytes)
        return TooMuchChanged("because too much of it was changed meanwhile");
    state_ = reader.StateNumber();
    return {};
}

// Stops between two places only: of those that share one it could not be told later which were visited.
Status InstanceScan::ReadClass(StoreReader& reader, Visit visit, bool& is_enough) {
    const std::string start = place_;
    SERVICE_RETURN_IF_ERROR(
        reader.ScanInstances(class_ids_[class_index_], start, [&](const InstanceView& found) {
            if (found.place != place_) {
                VisitUndone(&found.place, visit, is_enough);
                if (is_enough) return false;
                place_ = found.place;
            }
            if (!IsUndone(found)) is_enough = !visit(class_index_, found.record) || is_enough;
            return true;
        }));
    VisitUndone(nullptr, visit, is_enough);
    if (is_enough) return {};
    ++class_index_;
    place_.clear();
    return {};
}

// Visits what was undone below the place, in all of the class when it is null. When it is enough already,
// only what shares its place with the one visited last.
void InstanceScan::VisitUndone(const std::string_view* below, Visit visit, bool& is_enough) {
    while (!undone_.empty()) {
        const auto first = undone_.begin();
        const auto& [where, record] = *first;
        if (where.class_index != class_index_ || (below && where.place >= *below)) return;
        if (is_enough && where.place != place_) return;
        place_ = where.place;
        if (record) is_enough = !visit(class_index_, *record) || is_enough;
        undone_bytes_ -= kUndoneOverhead + 2 * where.key.size() + (record ? record->size() : 0);
        undone_.erase(first);
    }
}

bool InstanceScan::IsUndone(const InstanceView& found) const {
    // What is left of lower places was visited before, so one look tells for most.
    if (undone_.empty() || undone_.begin()->first.class_index != class_index_ ||
        undone_.begin()->first.place != found.place)
        return false;
    return undone_.contains({class_index_, std::string(found.place), std::string(found.key)});
}

}  // namespace service
