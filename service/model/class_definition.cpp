#include "service/model/class_definition.h"

#include <algorithm>
#include <numeric>
#include <unordered_set>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr std::string_view kKey = "key";
constexpr std::string_view kNotNull = "not_null";
constexpr std::string_view kRequired = "required";
constexpr std::string_view kAbstract = "abstract";
constexpr std::string_view kSingleton = "singleton";

bool IsNameStart(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool IsNamePart(char c) noexcept {
    return IsNameStart(c) || (c >= '0' && c <= '9');
}

// `inherited` becomes what a redeclaration with the qualifiers `own` has: those that travel to subclasses and
// that it does not set itself, then its own. `superclass` is the class above that of `owner`.
Status MergeQualifiers(const std::string& owner, const std::string& superclass,
                       const std::vector<Qualifier>& own, std::vector<Qualifier>& inherited) {
    std::vector<Qualifier> merged;
    merged.reserve(inherited.size() + own.size());
    for (Qualifier& qualifier : inherited) {
        if (!(qualifier.flavor & kFlavorToSubclass)) continue;
        const Qualifier* anew = FindQualifier(own, qualifier.name);
        if (!anew) {
            merged.push_back(std::move(qualifier));
        } else if ((qualifier.flavor & kFlavorNotOverridable) && !SameValue(anew->value, qualifier.value)) {
            std::string reason = "qualifier ";
            reason.append(anew->name).append(" of ").append(owner);
            reason.append(" has another value than that which is inherited from class ").append(superclass);
            reason.append(", where it is not to be overridden (DisableOverride): leave it away");
            return {WBEM_E_OVERRIDE_NOT_ALLOWED, std::move(reason)};
        }
    }
    merged.insert(merged.end(), own.begin(), own.end());
    inherited = std::move(merged);
    return {};
}

void DropRestricted(std::vector<Qualifier>& qualifiers) {
    std::erase_if(qualifiers,
                  [](const Qualifier& qualifier) { return !(qualifier.flavor & kFlavorToSubclass); });
}

bool HasRestricted(const std::vector<Qualifier>& qualifiers) {
    return std::any_of(qualifiers.begin(), qualifiers.end(),
                       [](const Qualifier& qualifier) { return !(qualifier.flavor & kFlavorToSubclass); });
}

// Whether a method's qualifiers, or those of its parameters, do not all go to subclasses.
bool HasRestricted(const MethodDefinition& method) {
    return HasRestricted(method.qualifiers) ||
           std::any_of(method.parameters.begin(), method.parameters.end(),
                       [](const ParameterDeclaration& each) { return HasRestricted(each.qualifiers); });
}

// Whether a property must have a value.
bool SaysNotNull(const std::vector<Qualifier>& qualifiers) {
    return HasTrueQualifier(qualifiers, kNotNull) || HasTrueQualifier(qualifiers, kRequired);
}

// The first of `named` that has the name of an earlier one; null when their names differ.
template <typename Named>
const Named* FindTwin(const std::vector<Named>& named) {
    constexpr size_t kFew = 16;
    if (named.size() <= kFew) {
        for (size_t i = 0; i < named.size(); ++i) {
            for (size_t j = 0; j < i; ++j) {
                if (EqualFolded(named[i].name, named[j].name)) return &named[i];
            }
        }
        return nullptr;
    }
    std::unordered_set<std::string> names;
    names.reserve(named.size());
    for (const Named& each : named) {
        if (!names.insert(Fold(each.name)).second) return &each;
    }
    return nullptr;
}

Status CheckQualifiers(const std::string& owner, const std::vector<Qualifier>& qualifiers) {
    if (qualifiers.size() > kMaxQualifiers) {
        return {WBEM_E_INVALID_OBJECT,
                owner + " has more than " + std::to_string(kMaxQualifiers) + " qualifiers"};
    }
    for (const Qualifier& qualifier : qualifiers) {
        SERVICE_RETURN_IF_ERROR(CheckName("qualifier", qualifier.name, true));
        if (Status fault = CheckValue(qualifier.type, qualifier.value); !fault.ok()) {
            return {fault.code(), "qualifier " + qualifier.name + " of " + owner + ": " + fault.reason()};
        }
    }
    if (const Qualifier* twin = FindTwin(qualifiers))
        return {WBEM_E_INVALID_OBJECT, owner + " has the qualifier " + twin->name + " twice"};
    return {};
}

// Qualifiers that act must have the type they act by.
Status CheckActingQualifiers(const std::string& owner, const std::vector<Qualifier>& qualifiers) {
    for (const std::string_view name : {kKey, kNotNull, kAbstract, kSingleton}) {
        const Qualifier* qualifier = FindQualifier(qualifiers, name);
        if (qualifier && !std::holds_alternative<bool>(qualifier->value)) {
            return {WBEM_E_INVALID_OBJECT,
                    "qualifier " + qualifier->name + " of " + owner + " must be a boolean, TRUE or FALSE"};
        }
    }
    return {};
}

bool MayBeKey(const PropertyType& type) noexcept {
    if (type.is_array) return false;
    switch (RepresentationOf(type.type)) {
        case Representation::kReal:
        case Representation::kObject:
            return false;
        default:
            return true;
    }
}

}  // namespace

const Qualifier* FindQualifier(const std::vector<Qualifier>& qualifiers, std::string_view name) {
    for (const Qualifier& qualifier : qualifiers) {
        if (EqualFolded(qualifier.name, name)) return &qualifier;
    }
    return nullptr;
}

bool HasTrueQualifier(const std::vector<Qualifier>& qualifiers, std::string_view name) {
    const Qualifier* qualifier = FindQualifier(qualifiers, name);
    const bool* value = qualifier ? std::get_if<bool>(&qualifier->value) : nullptr;
    return value && *value;
}

Status CheckName(std::string_view what, std::string_view name, bool allow_system) {
    const auto fault = [&](const std::string& why) {
        return Status(WBEM_E_INVALID_PARAMETER,
                      "\"" + ClipForMessage(name, 80) + "\" cannot name a " + std::string(what) + ": " + why);
    };
    if (name.empty()) return fault("a name has at least one character");
    if (name.size() > kMaxNameBytes)
        return fault("a name has at most " + std::to_string(kMaxNameBytes) + " bytes");
    if (!IsValidUtf8(name)) return fault("it is not valid UTF-8");
    if (!IsNameStart(name.front())) return fault("a name begins with a letter or an underscore");
    if (!std::all_of(name.begin(), name.end(), IsNamePart)) {
        return fault("a name holds letters, digits and underscores only");
    }
    if (!allow_system && name.starts_with("__")) {
        return fault("names that begin with two underscores belong to the service");
    }
    return {};
}

Result<ClassPtr> ClassDefinition::Resolve(uint32_t class_id, ClassDeclaration declaration,
                                          ClassPtr superclass) {
    const auto definition = std::shared_ptr<ClassDefinition>(new ClassDefinition);
    definition->class_id_ = class_id;
    definition->declaration_ = std::move(declaration);
    // However it was spelled when the class was declared.
    if (superclass) definition->declaration_.superclass = superclass->Name();
    definition->superclass_ = std::move(superclass);
    ClassDefinition& self = *definition;
    const ClassDeclaration& declared = self.declaration_;

    SERVICE_RETURN_IF_ERROR(CheckName("class", declared.name, true));
    self.folded_name_ = Fold(declared.name);
    SERVICE_RETURN_IF_ERROR(CheckQualifiers("class " + declared.name, declared.qualifiers));
    SERVICE_RETURN_IF_ERROR(CheckActingQualifiers("class " + declared.name, declared.qualifiers));
    SERVICE_RETURN_IF_ERROR(self.Inherit());
    SERVICE_RETURN_IF_ERROR(self.JoinFeatures());
    return ClassPtr(definition);
}

Status ClassDefinition::JoinFeatures() {
    // Being abstract is not inherited: a class is abstract when it says so itself.
    is_abstract_ = HasTrueQualifier(declaration_.qualifiers, kAbstract);
    is_singleton_ = HasTrueQualifier(qualifiers_, kSingleton);
    SERVICE_RETURN_IF_ERROR(JoinProperties());
    SERVICE_RETURN_IF_ERROR(JoinMethods());
    IndexProperties();
    return CheckKeys();
}

Status ClassDefinition::Inherit() {
    if (!superclass_) {
        qualifiers_ = declaration_.qualifiers;
        return {};
    }
    if (Derivation().size() > kMaxClassDepth) {
        return {WBEM_E_INVALID_SUPERCLASS, "class " + Name() + " has more than " +
                                               std::to_string(kMaxClassDepth) + " superclasses above it"};
    }
    qualifiers_ = superclass_->qualifiers_;
    SERVICE_RETURN_IF_ERROR(
        MergeQualifiers("class " + Name(), superclass_->Name(), declaration_.qualifiers, qualifiers_));
    properties_ = superclass_->properties_;
    for (PropertyDefinition& inherited : properties_) {
        inherited.is_local = false;
        if (!HasRestricted(inherited.qualifiers)) continue;
        std::vector<Qualifier> kept = inherited.qualifiers;
        DropRestricted(kept);
        inherited.qualifiers = std::move(kept);
        inherited.is_not_null = SaysNotNull(inherited.qualifiers);
    }
    methods_ = superclass_->methods_;
    for (MethodPtr& inherited : methods_) {
        if (!inherited->is_local && !HasRestricted(*inherited)) continue;
        auto method = std::make_shared<MethodDefinition>(*inherited);
        method->is_local = false;
        DropRestricted(method->qualifiers);
        for (ParameterDeclaration& parameter : method->parameters)
            DropRestricted(parameter.qualifiers);
        inherited = std::move(method);
    }
    return {};
}

Status ClassDefinition::JoinProperties() {
    const std::vector<PropertyDeclaration>& declared = declaration_.properties;
    if (declared.size() > kMaxProperties) return TooManyProperties();
    if (const PropertyDeclaration* twin = FindTwin(declared)) {
        return {WBEM_E_INVALID_OBJECT, "class " + Name() + " declares the property " + twin->name + " twice"};
    }
    for (const PropertyDeclaration& property : declared)
        SERVICE_RETURN_IF_ERROR(Join(property));
    if (properties_.size() > kMaxProperties) return TooManyProperties();
    return {};
}

Status ClassDefinition::JoinMethods() {
    const std::vector<MethodDeclaration>& declared = declaration_.methods;
    const auto too_many = [&]() -> Status {
        return {WBEM_E_INVALID_OBJECT,
                "class " + Name() + " has more than " + std::to_string(kMaxMethods) + " methods"};
    };
    if (declared.size() > kMaxMethods) return too_many();
    if (const MethodDeclaration* twin = FindTwin(declared)) {
        return {WBEM_E_INVALID_OBJECT, "class " + Name() + " declares the method " + twin->name + " twice"};
    }
    for (const MethodDeclaration& method : declared)
        SERVICE_RETURN_IF_ERROR(Join(method));
    if (methods_.size() > kMaxMethods) return too_many();
    return {};
}

void ClassDefinition::IndexProperties() {
    keys_.clear();
    has_objects_ = false;
    for (size_t i = 0; i < properties_.size(); ++i) {
        if (properties_[i].is_key) keys_.push_back(i);
        if (properties_[i].type.type == CimType::kObject) has_objects_ = true;
    }
    name_order_.resize(properties_.size());
    std::iota(name_order_.begin(), name_order_.end(), 0U);
    std::sort(name_order_.begin(), name_order_.end(),
              [&](uint32_t a, uint32_t b) { return properties_[a].wide_name < properties_[b].wide_name; });
}

ClassPtr ClassDefinition::Select(const std::vector<size_t>& properties) const {
    const auto selected = std::shared_ptr<ClassDefinition>(new ClassDefinition(*this));
    selected->properties_.clear();
    for (size_t i = 0; i < properties_.size(); ++i) {
        if (std::find(properties.begin(), properties.end(), i) != properties.end())
            selected->properties_.push_back(properties_[i]);
    }
    selected->is_partial_ = is_partial_ || selected->properties_.size() < properties_.size();
    selected->IndexProperties();
    selected->lacks_keys_ = lacks_keys_ || selected->keys_.size() < keys_.size();
    return selected;
}

Status ClassDefinition::TooManyProperties() const {
    return {WBEM_E_INVALID_OBJECT,
            "class " + Name() + " has more than " + std::to_string(kMaxProperties) + " properties"};
}

Status ClassDefinition::Join(const PropertyDeclaration& declared) {
    const std::string owner = "property " + declaration_.name + "." + declared.name;
    SERVICE_RETURN_IF_ERROR(CheckName("property", declared.name, declaration_.name.starts_with("__")));
    if (declared.name.ends_with("_")) {
        return {WBEM_E_INVALID_PARAMETER, owner + ": a property's name does not end with an underscore"};
    }
    SERVICE_RETURN_IF_ERROR(CheckQualifiers(owner, declared.qualifiers));
    SERVICE_RETURN_IF_ERROR(CheckActingQualifiers(owner, declared.qualifiers));
    if (Status fault = CheckValue(declared.type, declared.default_value); !fault.ok()) {
        return {fault.code(), "the default of " + owner + ": " + fault.reason()};
    }
    if (const auto index = FindProperty(std::string_view(declared.name))) {
        return Redeclare(properties_[*index], declared);
    }

    PropertyDefinition property;
    property.id = {class_id_, declared.ordinal};
    property.name = declared.name;
    property.folded_name = Fold(declared.name);
    property.wide_name = ToWideLossy(declared.name);
    property.type = declared.type;
    property.default_value = declared.default_value;
    property.qualifiers = declared.qualifiers;
    property.origin = declaration_.name;
    property.is_local = true;
    property.is_key = HasTrueQualifier(declared.qualifiers, kKey);
    property.is_not_null = SaysNotNull(declared.qualifiers);
    if (property.is_key) SERVICE_RETURN_IF_ERROR(CheckMayBeKey(declared));
    properties_.push_back(std::move(property));
    return {};
}

Status ClassDefinition::Redeclare(PropertyDefinition& inherited, const PropertyDeclaration& declared) {
    if (!inherited.type.SameShape(declared.type)) {
        return {WBEM_E_TYPE_MISMATCH, "property " + declaration_.name + "." + declared.name +
                                          " is declared as " + DescribeType(declared.type) + ", but " +
                                          inherited.origin + " declares it as " +
                                          DescribeType(inherited.type)};
    }
    inherited.type = declared.type;
    // A redeclaration without a default keeps the inherited one.
    if (!IsNull(declared.default_value)) inherited.default_value = declared.default_value;
    std::vector<Qualifier> merged = inherited.qualifiers;
    SERVICE_RETURN_IF_ERROR(MergeQualifiers("property " + declaration_.name + "." + declared.name,
                                            superclass_->Name(), declared.qualifiers, merged));
    inherited.qualifiers = std::move(merged);
    inherited.is_local = true;
    inherited.is_not_null = SaysNotNull(inherited.qualifiers);
    if (inherited.is_key || !HasTrueQualifier(declared.qualifiers, kKey)) return {};
    // Published schemas declare a property high up and make it a key further down.
    SERVICE_RETURN_IF_ERROR(CheckMayBeKey(declared));
    inherited.is_key = true;
    return {};
}

Status ClassDefinition::CheckMayBeKey(const PropertyDeclaration& declared) const {
    const std::string owner = "property " + declaration_.name + "." + declared.name;
    if (superclass_ && !superclass_->Keys().empty()) {
        return {WBEM_E_INVALID_OBJECT,
                owner + " cannot be a key: class " + superclass_->Name() + " above it has its keys already"};
    }
    if (!MayBeKey(declared.type)) {
        return {WBEM_E_INVALID_PROPERTY_TYPE,
                owner + " cannot be a key: its type is " + DescribeType(declared.type) +
                    ", a key is an integer, a boolean, a string, a char16, a datetime or a reference"};
    }
    return {};
}

Status ClassDefinition::Join(const MethodDeclaration& declared) {
    const std::string owner = "method " + declaration_.name + "." + declared.name;
    SERVICE_RETURN_IF_ERROR(CheckName("method", declared.name));
    SERVICE_RETURN_IF_ERROR(CheckQualifiers(owner, declared.qualifiers));
    if (declared.parameters.size() > kMaxParameters) {
        return {WBEM_E_INVALID_OBJECT,
                owner + " has more than " + std::to_string(kMaxParameters) + " parameters"};
    }
    if (const ParameterDeclaration* twin = FindTwin(declared.parameters))
        return {WBEM_E_INVALID_OBJECT, owner + " has the parameter " + twin->name + " twice"};
    for (const ParameterDeclaration& parameter : declared.parameters) {
        SERVICE_RETURN_IF_ERROR(CheckName("parameter", parameter.name));
        SERVICE_RETURN_IF_ERROR(
            CheckQualifiers("parameter " + parameter.name + " of " + owner, parameter.qualifiers));
    }

    auto method = std::make_shared<MethodDefinition>();
    method->name = declared.name;
    method->folded_name = Fold(declared.name);
    method->return_type = declared.return_type;
    method->parameters = declared.parameters;
    method->qualifiers = declared.qualifiers;
    method->origin = declaration_.name;
    method->is_local = true;
    for (MethodPtr& inherited : methods_) {
        if (inherited->folded_name != method->folded_name) continue;
        method->name = inherited->name;
        method->origin = inherited->origin;
        method->qualifiers = inherited->qualifiers;
        SERVICE_RETURN_IF_ERROR(
            MergeQualifiers(owner, superclass_->Name(), declared.qualifiers, method->qualifiers));
        for (ParameterDeclaration& parameter : method->parameters) {
            for (const ParameterDeclaration& above : inherited->parameters) {
                if (!EqualFolded(above.name, parameter.name)) continue;
                std::vector<Qualifier> qualifiers = above.qualifiers;
                SERVICE_RETURN_IF_ERROR(MergeQualifiers("parameter " + parameter.name + " of " + owner,
                                                        superclass_->Name(), parameter.qualifiers,
                                                        qualifiers));
                parameter.qualifiers = std::move(qualifiers);
            }
        }
        inherited = std::move(method);
        return {};
    }
    methods_.push_back(std::move(method));
    return {};
}

Status ClassDefinition::CheckKeys() const {
    if (is_singleton_ && !keys_.empty()) {
        return {WBEM_E_INVALID_OBJECT, "class " + Name() + " is a singleton and cannot have a key property"};
    }
    return {};
}

std::optional<size_t> ClassDefinition::FindProperty(std::string_view name) const {
    for (size_t i = 0; i < properties_.size(); ++i) {
        if (properties_[i].name == name) return i;
    }
    const std::string folded = Fold(name);
    for (size_t i = 0; i < properties_.size(); ++i) {
        if (properties_[i].folded_name == folded) return i;
    }
    return std::nullopt;
}

MethodPtr ClassDefinition::FindMethod(std::string_view name) const {
    const std::string folded = Fold(name);
    for (const MethodPtr& method : methods_) {
        if (method->folded_name == folded) return method;
    }
    return nullptr;
}

std::optional<size_t> ClassDefinition::FindProperty(std::wstring_view name) const {
    for (size_t i = 0; i < properties_.size(); ++i) {
        if (properties_[i].wide_name == name) return i;
    }
    std::string utf8;
    return AppendUtf8(name, utf8) ? FindProperty(std::string_view(utf8)) : std::nullopt;
}

bool ClassDefinition::IsA(std::string_view class_name) const {
    for (const ClassDefinition* c = this; c; c = c->superclass_.get()) {
        if (EqualFolded(c->Name(), class_name)) return true;
    }
    return false;
}

std::vector<std::string> ClassDefinition::Derivation() const {
    std::vector<std::string> names;
    for (const ClassDefinition* c = superclass_.get(); c; c = c->superclass_.get())
        names.push_back(c->Name());
    return names;
}

const std::string& ClassDefinition::DynastyName() const noexcept {
    const ClassDefinition* c = this;
    while (c->superclass_)
        c = c->superclass_.get();
    return c->Name();
}

}  // namespace service
