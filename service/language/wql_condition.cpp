#include "service/language/wql_condition.h"

#include <utility>

#include "service/model/object_path.h"
#include "service/model/text.h"

namespace service {
namespace {

// Classes that one term remembers. Events of a query without ISA may be of any class.
constexpr size_t kMaxPlaces = 16;

bool IsNullTest(WqlOperator comparison) noexcept {
    return comparison == WqlOperator::kIsNull || comparison == WqlOperator::kIsNotNull;
}

WqlTruth TestNull(WqlOperator comparison, bool is_null) noexcept {
    return TruthOf(is_null == (comparison == WqlOperator::kIsNull));
}

// What a term says of an object, null for none, that its path ends at.
WqlTruth TestClass(const WqlTerm& term, const Instance* object) {
    const auto* name = std::get_if<WqlText>(&term.literal);
    return object && name ? TruthOf(object->Class()->IsA(name->text)) : WqlTruth::kUnknown;
}

}  // namespace

Result<bool> WqlCondition::Matches(const Instance& object) {
    WqlTruth truth = WqlTruth::kUnknown;
    SERVICE_RETURN_IF_ERROR(Evaluate(root_, object, truth));
    return truth == WqlTruth::kTrue;
}

Status WqlCondition::Evaluate(const Node& node, const Instance& object, WqlTruth& truth) {
    if (node.kind == WqlExpression::Kind::kTerm) return EvaluateTerm(terms_[node.term], object, truth);
    if (node.kind == WqlExpression::Kind::kNot) {
        SERVICE_RETURN_IF_ERROR(Evaluate(node.operands.front(), object, truth));
        truth = Negated(truth);
        return {};
    }
    // The value that decides the whole whatever the other operands are.
    const bool is_all = node.kind == WqlExpression::Kind::kAnd;
    const WqlTruth decisive = TruthOf(!is_all);
    truth = TruthOf(is_all);
    for (const Node& operand : node.operands) {
        WqlTruth next = WqlTruth::kUnknown;
        SERVICE_RETURN_IF_ERROR(Evaluate(operand, object, next));
        if (next == decisive) {
            truth = decisive;
            return {};
        }
        if (next == WqlTruth::kUnknown) truth = next;
    }
    return {};
}

Status WqlCondition::EvaluateTerm(Term& term, const Instance& object, WqlTruth& truth) {
    truth = WqlTruth::kUnknown;
    const WqlOperator comparison = term.source.comparison;
    const Instance* current = &object;
    ObjectPtr held;  // keeps `current` where it is an embedded object
    for (size_t step = 0;; ++step) {
        const bool is_last = step + 1 == term.steps.size();
        if (is_last && term.system != SystemProperty::kNone) return EvaluateSystem(term, *current, truth);

        const Place& place = PlaceIn(term, step, current->Class());
        if (!place.index) return {};
        Value storage;
        ValueView view;
        SERVICE_RETURN_IF_ERROR(current->Read(*place.index, storage, view));
        if (IsNull(view)) {
            if (IsNullTest(comparison)) truth = TestNull(comparison, true);
            return {};
        }
        const auto* embedded = std::get_if<const ObjectPtr*>(&view);
        if (is_last) {
            if (IsNullTest(comparison)) {
                truth = TestNull(comparison, false);
            } else if (comparison == WqlOperator::kIsA) {
                truth = TestClass(term.source, embedded ? (*embedded)->get() : nullptr);
            } else if (place.comparison) {
                truth = place.comparison->Compare(view);
            }
            return {};
        }
        if (!embedded || !**embedded) return {};
        ObjectPtr next = **embedded;
        held = std::move(next);
        current = held.get();
    }
}

Status WqlCondition::EvaluateSystem(const Term& term, const Instance& object, WqlTruth& truth) {
    const ClassDefinition& definition = *object.Class();
    std::string relative_path;
    ValueView value;
    switch (term.system) {
        case SystemProperty::kClass:
            value = std::string_view(definition.Name());
            break;
        case SystemProperty::kSuperclass:
            if (definition.Superclass()) value = std::string_view(definition.Superclass()->Name());
            break;
        case SystemProperty::kDynasty:
            value = std::string_view(definition.DynastyName());
            break;
        default: {
            // An embedded object may be without a key, and so without a path.
            if (definition.Keys().empty() && !definition.IsSingleton()) break;
            Result<std::string> path = RelativePathOf(object);
            if (path.code() == WBEM_E_ILLEGAL_NULL) break;
            if (!path.ok()) return std::move(path).status();
            relative_path = std::move(*path);
            value = std::string_view(relative_path);
        }
    }
    const WqlOperator comparison = term.source.comparison;
    if (IsNullTest(comparison)) {
        truth = TestNull(comparison, IsNull(value));
    } else if (term.system_comparison && !IsNull(value)) {
        truth = term.system_comparison->Compare(value);
    }
    return {};
}

const WqlCondition::Place& WqlCondition::PlaceIn(Term& term, size_t step, const ClassPtr& definition) {
    std::vector<Place>& places = term.steps[step].places;
    for (auto place = places.rbegin(); place != places.rend(); ++place) {
        if (place->definition == definition) return *place;
    }
    if (places.size() == kMaxPlaces) places.clear();
    return places.emplace_back(FindPlace(term, step, definition));
}

WqlCondition::Place WqlCondition::FindPlace(const Term& term, size_t step, const ClassPtr& definition) {
    Place place{definition, definition->FindProperty(std::string_view(term.steps[step].name)), std::nullopt};
    const WqlOperator comparison = term.source.comparison;
    const bool compares =
        step + 1 == term.steps.size() && !IsNullTest(comparison) && comparison != WqlOperator::kIsA;
    if (!place.index || !compares) return place;
    Result<WqlComparison> prepared =
        WqlComparison::Prepare(definition->Properties()[*place.index].type, term.source, term.pattern);
    if (prepared.ok()) place.comparison = std::move(*prepared);
    return place;
}

}  // namespace service
