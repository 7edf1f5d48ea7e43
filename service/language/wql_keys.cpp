#include "service/language/wql_keys.h"

#include <algorithm>
#include <utility>

#include "service/model/function_ref.h"
#include "service/model/text.h"

namespace service {
namespace {

void ForEachDemand(const WqlExpression& expression, FunctionRef<void(const WqlTerm&)> visit) {
    if (expression.kind == WqlExpression::Kind::kTerm) visit(expression.term);
    if (expression.kind != WqlExpression::Kind::kAnd) return;
    for (const WqlExpression& operand : expression.operands)
        ForEachDemand(operand, visit);
}

// The literal as a key's value; nothing for NULL and for a real.
std::optional<KeyBinding> BindingOf(const std::string& name, const WqlLiteral& literal) {
    KeyBinding binding;
    binding.name = name;
    if (const auto* text = std::get_if<WqlText>(&literal)) {
        binding.value = std::string(text->text);
    } else if (const auto* number = std::get_if<int64_t>(&literal)) {
        binding.value = *number;
    } else if (const auto* natural = std::get_if<uint64_t>(&literal)) {
        binding.value = *natural;
    } else if (const auto* flag = std::get_if<bool>(&literal)) {
        binding.value = *flag;
    } else {
        return std::nullopt;
    }
    return binding;
}

// Whether keys of the type are the same when, and only when, WQL finds them equal. Datetimes are not: one
// moment can be written with several offsets.
bool ComparesAsKey(const PropertyType& type) noexcept {
    switch (RepresentationOf(type.type)) {
        case Representation::kText:
            return type.type != CimType::kDatetime;
        case Representation::kSigned:
            return true;
        case Representation::kUnsigned:
            return type.type != CimType::kChar16;
        default:
            return type.type == CimType::kBoolean;
    }
}

// 1 and 0 are booleans where a boolean is asked for.
void FitToType(const PropertyType& type, KeyBinding& binding) {
    const auto* number = std::get_if<uint64_t>(&binding.value);
    if (type.type == CimType::kBoolean && number && *number <= 1) binding.value = *number == 1;
}

// The path with the first value demanded of each key property; nothing when one has none that can be a key's.
std::optional<ObjectPath> PathOf(const ClassDefinition& definition, const std::vector<WqlDemand>& demands) {
    if (definition.Keys().empty()) return std::nullopt;
    ObjectPath path;
    path.class_name = definition.Name();
    for (const size_t index : definition.Keys()) {
        const PropertyDefinition& property = definition.Properties()[index];
        const auto demand = std::find_if(demands.begin(), demands.end(), [&](const WqlDemand& candidate) {
            return EqualFolded(candidate.property, property.name);
        });
        if (demand == demands.end() || !ComparesAsKey(property.type)) return std::nullopt;
        std::optional<KeyBinding> binding = BindingOf(property.name, demand->value);
        if (!binding) return std::nullopt;
        FitToType(property.type, *binding);
        path.keys.push_back(std::move(*binding));
    }
    return KeyOf(definition, path).ok() ? std::optional<ObjectPath>(std::move(path)) : std::nullopt;
}

bool IsInstanceOfEvent(const std::string& name) {
    return EqualFolded(name, "TargetInstance") || EqualFolded(name, "PreviousInstance");
}

}  // namespace

std::optional<ObjectPath> DemandedPath(const WqlQuery& query, const ClassDefinition& definition) {
    if (!query.where) return std::nullopt;
    std::vector<WqlDemand> demands;
    ForEachDemand(*query.where, [&](const WqlTerm& term) {
        if (term.comparison == WqlOperator::kEqual && term.path.names.size() == 1)
            demands.push_back({term.path.names.front(), term.literal});
    });
    return PathOf(definition, demands);
}

WqlEventFilter::WqlEventFilter(const WqlQuery& query) {
    if (!query.where) return;
    ForEachDemand(*query.where, [this](const WqlTerm& term) { Learn(term); });
}

void WqlEventFilter::Learn(const WqlTerm& term) {
    const std::vector<std::string>& names = term.path.names;
    if (!IsInstanceOfEvent(names.front())) return;
    const auto* text = std::get_if<WqlText>(&term.literal);
    if (term.comparison == WqlOperator::kIsA && names.size() == 1 && text)
        superclasses_.push_back(text->text);
    if (term.comparison != WqlOperator::kEqual || names.size() != 2) return;
    if (EqualFolded(names.back(), "__CLASS")) {
        if (text) classes_.push_back(text->text);
    } else {
        demands_.push_back({names.back(), term.literal});
    }
}

WqlEventFilter::Demand WqlEventFilter::OnClass(const ClassDefinition& definition) const {
    Demand demand;
    demand.is_class_of_interest =
        std::all_of(superclasses_.begin(), superclasses_.end(),
                    [&](const std::string& name) { return definition.IsA(name); }) &&
        std::all_of(classes_.begin(), classes_.end(),
                    [&](const std::string& name) { return EqualFolded(definition.Name(), name); });
    if (!demand.is_class_of_interest) return demand;
    const std::optional<ObjectPath> path = PathOf(definition, demands_);
    if (!path) return demand;
    Result<std::string> key = KeyOf(definition, *path);
    if (key.ok()) demand.key = std::move(*key);
    return demand;
}

}  // namespace service
