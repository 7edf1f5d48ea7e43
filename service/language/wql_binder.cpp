// WqlCondition::Bind: from the syntax tree to terms whose properties and types are checked as far as the
// classes are known.
#include <array>
#include <utility>

#include "service/language/wql_condition.h"
#include "service/model/text.h"

namespace service {
namespace {

// All system properties there are: SELECT may list any of them.
constexpr std::array<std::string_view, 10> kSystemProperties{
    "__GENUS",          "__CLASS",      "__SUPERCLASS", "__DYNASTY",   "__RELPATH",
    "__PROPERTY_COUNT", "__DERIVATION", "__SERVER",     "__NAMESPACE", "__PATH"};

bool IsSystemProperty(std::string_view name) {
    for (const std::string_view system : kSystemProperties) {
        if (EqualFolded(name, system)) return true;
    }
    return false;
}

// The first `count` names of the path, dots between them.
std::string Prefix(const WqlPath& path, size_t count) {
    std::string prefix;
    for (size_t i = 0; i < count; ++i) {
        if (i > 0) prefix += '.';
        prefix += path.names[i];
    }
    return prefix;
}

Status Invalid(const WqlPath& path, const std::string& message) {
    return WqlFault(WBEM_E_INVALID_QUERY, path.position, message);
}

const PropertyDefinition* FindIn(const std::vector<ClassPtr>& classes, std::string_view name) {
    for (const ClassPtr& definition : classes) {
        if (const auto index = definition->FindProperty(name)) return &definition->Properties()[*index];
    }
    return nullptr;
}

}  // namespace

class WqlCondition::Binder {
 public:
    Binder(WqlCondition& condition, FindClass find_class) : condition_(condition), find_class_(find_class) {}

    Status Bind(const WqlQuery& query) {
        Result<ClassPtr> definition = find_class_(query.class_name);
        if (!definition.ok()) return AtCharacter(query.class_position, definition.status());
        condition_.class_ = std::move(*definition);
        for (const WqlPath& path : query.properties)
            SERVICE_RETURN_IF_ERROR(CheckSelected(path));
        if (!query.where) return {};
        return BindExpression(*query.where, condition_.root_);
    }

 private:
    // A class that the object at the end of a path is known to be of, among terms joined by AND.
    struct Known {
        std::string folded_path;
        ClassPtr definition;
    };

    static Status AtCharacter(size_t position, const Status& fault) {
        return WqlFault(fault.code(), position, fault.reason());
    }

    Status BindExpression(const WqlExpression& expression, Node& node) {
        node.kind = expression.kind;
        if (expression.kind == WqlExpression::Kind::kTerm) {
            node.term = condition_.terms_.size();
            return BindTerm(expression.term, condition_.terms_.emplace_back());
        }
        const size_t known_outside = known_.size();
        if (expression.kind == WqlExpression::Kind::kAnd) LearnClasses(expression);
        for (const WqlExpression& operand : expression.operands)
            SERVICE_RETURN_IF_ERROR(BindExpression(operand, node.operands.emplace_back()));
        known_.erase(known_.begin() + static_cast<std::ptrdiff_t>(known_outside), known_.end());
        return {};
    }

    // A class that is not found is BindTerm's to refuse, or, behind `__CLASS =`, none that an object could
    // have.
    void LearnClasses(const WqlExpression& conjunction) {
        for (const WqlExpression& operand : conjunction.operands) {
            const WqlTerm& term = operand.term;
            const auto* name = std::get_if<WqlText>(&term.literal);
            if (operand.kind != WqlExpression::Kind::kTerm || !name) continue;
            const bool names_class =
                term.comparison == WqlOperator::kEqual && EqualFolded(term.path.names.back(), "__CLASS");
            if (term.comparison != WqlOperator::kIsA && !names_class) continue;
            Result<ClassPtr> definition = find_class_(name->text);
            if (!definition.ok()) continue;
            const size_t object_names = term.path.names.size() - (names_class ? 1 : 0);
            known_.push_back({Fold(Prefix(term.path, object_names)), std::move(*definition)});
        }
    }

    Status CheckSelected(const WqlPath& path) {
        if (IsSystemProperty(path.names.back())) return FindProperty(path, path.names.size() - 1).status();
        return FindProperty(path, path.names.size()).status();
    }

    Status BindTerm(const WqlTerm& source, Term& term) {
        term.source = source;
        for (const std::string& name : source.path.names)
            term.steps.push_back({name, {}});
        if (source.comparison == WqlOperator::kLike) SERVICE_RETURN_IF_ERROR(CompilePattern(term));
        if (IsSystemProperty(source.path.names.back())) return BindSystemProperty(term);

        SERVICE_ASSIGN_OR_RETURN(const PropertyDefinition* property,
                                 FindProperty(source.path, source.path.names.size()));
        if (source.comparison == WqlOperator::kIsA) return CheckIsA(source, property);
        const bool is_null_test =
            source.comparison == WqlOperator::kIsNull || source.comparison == WqlOperator::kIsNotNull;
        if (is_null_test || !property) return {};
        return WqlComparison::Prepare(property->type, source, term.pattern).status();
    }

    static Status CompilePattern(Term& term) {
        const auto* text = std::get_if<WqlText>(&term.source.literal);
        if (!text) return Invalid(term.source.path, "LIKE takes a pattern in quotes");
        // The pattern begins behind the quote.
        SERVICE_ASSIGN_OR_RETURN(WqlPattern pattern,
                                 WqlPattern::Compile(text->text, term.source.literal_position + 1));
        term.pattern = std::make_shared<const WqlPattern>(std::move(pattern));
        return {};
    }

    Status BindSystemProperty(Term& term) {
        const WqlPath& path = term.source.path;
        const std::string& name = path.names.back();
        SERVICE_RETURN_IF_ERROR(FindProperty(path, path.names.size() - 1).status());
        if (EqualFolded(name, "__CLASS")) {
            term.system = SystemProperty::kClass;
        } else if (EqualFolded(name, "__SUPERCLASS")) {
            term.system = SystemProperty::kSuperclass;
        } else if (EqualFolded(name, "__DYNASTY")) {
            term.system = SystemProperty::kDynasty;
        } else if (EqualFolded(name, "__RELPATH")) {
            term.system = SystemProperty::kRelativePath;
        } else {
            return Invalid(path, name +
                                     " has no place in a condition; __CLASS, __SUPERCLASS, __DYNASTY and "
                                     "__RELPATH do");
        }
        if (term.source.comparison == WqlOperator::kIsA) return NoObject(path);
        const bool compares = term.source.comparison != WqlOperator::kIsNull &&
                              term.source.comparison != WqlOperator::kIsNotNull;
        if (!compares) return {};
        SERVICE_ASSIGN_OR_RETURN(term.system_comparison,
                                 WqlComparison::Prepare(PropertyType{}, term.source, term.pattern));
        return {};
    }

    // `property` is null where the class is not known.
    Status CheckIsA(const WqlTerm& term, const PropertyDefinition* property) {
        if (property && (property->type.type != CimType::kObject || property->type.is_array))
            return NoObject(term.path);
        const auto* name = std::get_if<WqlText>(&term.literal);
        if (!name) return Invalid(term.path, "ISA takes the name of a class");
        const Result<ClassPtr> definition = find_class_(name->text);
        return definition.ok() ? Status() : AtCharacter(term.literal_position, definition.status());
    }

    static Status NoObject(const WqlPath& path) {
        return Invalid(path,
                       Prefix(path, path.names.size()) + " is no embedded object, which ISA asks about");
    }

    // What the first `count` names of the path lead to; null where the classes are not known.
    Result<const PropertyDefinition*> FindProperty(const WqlPath& path, size_t count) {
        std::vector<ClassPtr> classes{condition_.class_};
        const PropertyDefinition* property = nullptr;
        for (size_t i = 0; i < count; ++i) {
            property = FindIn(classes, path.names[i]);
            if (!property && !classes.empty())
                return Invalid(path, "class " + classes.back()->Name() + " has no property " + path.names[i]);
            if (i + 1 == path.names.size()) break;
            if (property && (property->type.type != CimType::kObject || property->type.is_array)) {
                return Invalid(path, Prefix(path, i + 1) + " is no embedded object, it has no property " +
                                         path.names[i + 1]);
            }
            classes = ClassesOf(Prefix(path, i + 1), property);
        }
        return property;
    }

    // What is known of the class of the object that `path` leads to.
    std::vector<ClassPtr> ClassesOf(const std::string& path, const PropertyDefinition* property) {
        std::vector<ClassPtr> classes;
        const std::string folded = Fold(path);
        for (const Known& known : known_) {
            if (known.folded_path == folded) classes.push_back(known.definition);
        }
        if (!property || property->type.class_name.empty()) return classes;
        // A class that is not there says nothing.
        Result<ClassPtr> declared = find_class_(property->type.class_name);
        if (declared.ok()) classes.push_back(std::move(*declared));
        return classes;
    }

    WqlCondition& condition_;
    FindClass find_class_;
    std::vector<Known> known_;
};

Result<WqlCondition> WqlCondition::Bind(const WqlQuery& query, FindClass find_class) {
    WqlCondition condition;
    SERVICE_RETURN_IF_ERROR(Binder(condition, find_class).Bind(query));
    return condition;
}

}  // namespace service
