// A query's WHERE clause, bound to the classes it speaks of and ready to be asked of one object after
// another.
//
//   Result<WqlCondition> condition = WqlCondition::Bind(*query, find_class);
//   if (!condition.ok()) return condition.status();
//   if (Result<bool> matches = condition->Matches(instance); matches.ok() && *matches) Deliver(instance);
//
// The objects are instances of the class behind FROM and of its subclasses: the instances of a class, or
// events, which hold TargetInstance and PreviousInstance as embedded objects. Only the properties that the
// condition asks for are read.
//
// What can be known is checked once, by Bind. The class behind FROM is known; the class of an embedded object
// is when its property is declared with one or when an `ISA` or `__CLASS =` stands next to the term, joined
// by AND: with `TargetInstance ISA 'Policy' AND TargetInstance.Days > 30` Policy must have Days, and it must
// be a number. Where nothing is known, and for what a subclass or a newer version of a class has otherwise,
// the property is looked up by its name in the object's own class, once a class.
//
// The logic has three values. A term is neither true nor false when the property is null (IS NULL apart),
// when the object's class does not have it, or has it with a type that cannot be compared so. The properties
// of an embedded object that is null are null. NOT of neither is neither; an object matches when the whole is
// true.
//
// Of the system properties __CLASS, __SUPERCLASS, __DYNASTY and __RELPATH can be asked for, as texts.
//
// A condition remembers where it found properties, so it belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/language/wql_comparison.h"
#include "service/language/wql_like.h"
#include "service/language/wql_query.h"
#include "service/model/class_definition.h"
#include "service/model/function_ref.h"
#include "service/model/instance.h"
#include "service/model/status.h"

namespace service {

class WqlCondition {
 public:
    // The class of that name, the event classes included, or the status to refuse the query with.
    using FindClass = FunctionRef<Result<ClassPtr>(std::string_view name)>;

    // WBEM_E_INVALID_QUERY for a property that a known class does not have, and for a comparison that its
    // type does not allow, in WHERE or in the list behind SELECT; `find_class`'s own status for an unknown
    // class behind FROM or ISA. `query` is needed during the call only.
    static Result<WqlCondition> Bind(const WqlQuery& query, FindClass find_class);

    // The class behind FROM.
    const ClassPtr& Class() const noexcept { return class_; }

    // Whether the condition is true of `object`; a fault is one of reading it. Without a WHERE clause every
    // object matches.
    Result<bool> Matches(const Instance& object);

 private:
    class Binder;

    enum class SystemProperty : uint8_t { kNone, kClass, kSuperclass, kDynasty, kRelativePath };

    // Where the property of a step is in one class, and how it is compared there.
    struct Place {
        ClassPtr definition;
        std::optional<size_t> index;              // none when the class does not have it
        std::optional<WqlComparison> comparison;  // none when its type cannot be compared so
    };
    struct Step {
        std::string name;
        std::vector<Place> places;  // of the classes met, the newest last
    };
    struct Term {
        WqlTerm source;
        std::vector<Step> steps;  // the last one is the property, those before it the objects around it
        SystemProperty system = SystemProperty::kNone;   // of the last step
        std::optional<WqlComparison> system_comparison;  // for these
        std::shared_ptr<const WqlPattern> pattern;       // of a LIKE
    };
    struct Node {
        WqlExpression::Kind kind = WqlExpression::Kind::kAnd;
        size_t term = 0;  // index in terms_
        std::vector<Node> operands;
    };

    WqlCondition() = default;
    Status Evaluate(const Node& node, const Instance& object, WqlTruth& truth);
    Status EvaluateTerm(Term& term, const Instance& object, WqlTruth& truth);
    static Status EvaluateSystem(const Term& term, const Instance& object, WqlTruth& truth);
    static const Place& PlaceIn(Term& term, size_t step, const ClassPtr& definition);
    static Place FindPlace(const Term& term, size_t step, const ClassPtr& definition);

    ClassPtr class_;
    std::vector<Term> terms_;
    Node root_;  // AND of nothing, which is true, when there is no WHERE clause
};

}  // namespace service
