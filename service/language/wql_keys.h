// What a WHERE clause demands of every match: keys and classes, by which candidates are found or dismissed
// without reading a property.
//
//   if (std::optional<ObjectPath> path = DemandedPath(*query, *definition)) ...  // at most one instance a
//   class
//
//   const WqlEventFilter filter(*query);
//   const WqlEventFilter::Demand demand = filter.OnClass(*definition);  // once a class
//   if (!demand.MayMatch(change.key)) continue;                         // no event of interest
//
// Only terms that the whole condition stands or falls with count: the condition itself, or what AND joins at
// its top. What is found or let pass is still to be tested by the condition. Keys compare as the store's do,
// which is as WQL compares texts and numbers; a key of another type demands nothing.
//
// The functions are stateless; a filter never changes, so any number of threads may use one.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/language/wql_query.h"
#include "service/model/class_definition.h"
#include "service/model/object_path.h"

namespace service {

// A property, a key or not, and the value that it must have.
struct WqlDemand {
    std::string property;
    WqlLiteral value;
};

// The path of the one instance of `definition` that can match, when the condition names every key property
// with `=`. The keys are inherited, so with another class's name the path does for a subclass, too.
std::optional<ObjectPath> DemandedPath(const WqlQuery& query, const ClassDefinition& definition);

// For queries of the instance events: what TargetInstance and PreviousInstance must be. Both have the same
// class and key wherever there are both.
class WqlEventFilter {
 public:
    explicit WqlEventFilter(const WqlQuery& query);

    struct Demand {
        bool is_class_of_interest = false;
        std::optional<std::string> key;  // the only key of interest, as KeyOf makes it; none for any

        // Whether an event of the instance with this key, as KeyOf makes it, is one to look at.
        bool MayMatch(std::string_view candidate) const noexcept {
            return is_class_of_interest && (!key || *key == candidate);
        }
    };

    // What is demanded of an event of an instance of this class, itself and not a subclass.
    Demand OnClass(const ClassDefinition& definition) const;

 private:
    void Learn(const WqlTerm& term);

    std::vector<std::string> superclasses_;  // ISA each of them
    std::vector<std::string> classes_;       // __CLASS = each of them
    std::vector<WqlDemand> demands_;         // properties with the values they must have
};

}  // namespace service
