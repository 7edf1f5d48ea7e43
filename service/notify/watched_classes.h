// WatchedClasses: what a subscription wants of the instances of each class, by the class's number in the
// store.
//
//   WatchedClasses classes(space, filter);
//   const WatchedClasses::Watched* watched = nullptr;
//   if (Status fault = classes.Find(reader, change.class_id, watched); !fault.ok()) return fault;
//   if (!watched || !watched->demand.MayMatch(change.key)) continue;  // no event of interest
//
// It learns the namespace's classes anew when it is asked after the schema has changed. A class that was
// deleted stays known: its last instances may still have to be reported. One that came and went between two
// looks is not, and its instances' events are lost.
//
// One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

#include "service/language/wql_keys.h"
#include "service/model/class_definition.h"
#include "service/model/status.h"
#include "service/store/repository.h"

namespace service {

class WatchedClasses {
 public:
    struct Watched {
        ClassPtr definition;
        WqlEventFilter::Demand demand;
    };

    WatchedClasses(Namespace space, WqlEventFilter filter)
        : space_(std::move(space)), filter_(std::move(filter)) {}

    // Learns the classes as they are now.
    Status Learn(RepositoryReader& reader);

    // Where the objects that instances of the class hold find their classes.
    std::shared_ptr<const ClassSource> EmbeddedClassesOf(const ClassDefinition& definition) const {
        return definition.HasObjects() ? embedded_ : nullptr;
    }

    // Null for a class of another namespace.
    Status Find(RepositoryReader& reader, uint32_t class_id, const Watched*& watched);

 private:
    Namespace space_;
    WqlEventFilter filter_;
    std::optional<uint64_t> generation_;  // of the schema, when the classes were learnt
    std::unordered_map<uint32_t, Watched> classes_;
    std::shared_ptr<const ClassSource> embedded_;
};

}  // namespace service
