// Classes: what a schema declares, and what comes of it once the superclasses are known.
//
//   Result<ClassPtr> c = ClassDefinition::Resolve(identity, declaration, superclass);
//   std::optional<size_t> i = (*c)->FindProperty(std::string_view("displayname"));
//   const PropertyDefinition& p = (*c)->Properties()[*i];
//
// A ClassDefinition never changes after Resolve, so any number of threads may read one; objects keep the one
// they were made from alive.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/model/value.h"

namespace service {

// The published flavor bits of a qualifier.
inline constexpr uint32_t kFlavorToInstance = 0x01;
inline constexpr uint32_t kFlavorToSubclass = 0x02;
inline constexpr uint32_t kFlavorNotOverridable = 0x10;
inline constexpr uint32_t kFlavorAmended = 0x80;

struct Qualifier {
    std::string name;
    PropertyType type{CimType::kBoolean, false, 0, {}};
    Value value = true;
    uint32_t flavor = kFlavorToSubclass;
};

// Where a qualifier may stand.
enum QualifierScope : uint32_t {
    kScopeClass = 0x001,
    kScopeAssociation = 0x002,
    kScopeIndication = 0x004,
    kScopeProperty = 0x008,
    kScopeReference = 0x010,
    kScopeMethod = 0x020,
    kScopeParameter = 0x040,
    kScopeQualifier = 0x080,
    kScopeSchema = 0x100,
    kScopeAny = 0x1FF,  // all of the above
    kScopeInstance = 0x200,
    kScopeNamespace = 0x400,
};

// `Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride);`
struct QualifierDeclaration {
    std::string name;
    PropertyType type{CimType::kBoolean, false, 0, {}};
    Value default_value;  // null for none
    uint32_t scope = kScopeAny;
    uint32_t flavor = kFlavorToSubclass;
};

// The qualifier of that name, without regard to case; null when there is none.
const Qualifier* FindQualifier(const std::vector<Qualifier>& qualifiers, std::string_view name);

// Whether the boolean qualifier of that name is there and true.
bool HasTrueQualifier(const std::vector<Qualifier>& qualifiers, std::string_view name);

struct PropertyDeclaration {
    std::string name;
    PropertyType type;
    Value default_value;  // null for none
    std::vector<Qualifier> qualifiers;
    uint32_t ordinal =
        0;  // identifies the property within its class for good; given when the class is stored
};

struct ParameterDeclaration {
    std::string name;
    PropertyType type;
    std::vector<Qualifier> qualifiers;
};

// Methods are kept and shown; the service calls none.
struct MethodDeclaration {
    std::string name;
    std::optional<PropertyType> return_type;  // none for void
    std::vector<ParameterDeclaration> parameters;
    std::vector<Qualifier> qualifiers;
};

// A class as its schema declares it: its own properties, methods and qualifiers, nothing inherited.
struct ClassDeclaration {
    std::string name;
    std::string superclass;  // empty for a root class
    std::vector<Qualifier> qualifiers;
    std::vector<PropertyDeclaration> properties;
    std::vector<MethodDeclaration> methods;
    uint32_t next_ordinal = 0;  // the ordinal of the next property added; ordinals are never used again
};

// Identifies a property wherever it is inherited to, in every version of its class.
struct PropertyId {
    uint32_t class_id = 0;  // of the class that declared it first
    uint32_t ordinal = 0;
    friend bool operator==(const PropertyId&, const PropertyId&) = default;
};

// A list of qualifiers that never changes, shared by all classes that have it from the same one: published
// schemas say more of a property than the property itself takes.
class SharedQualifiers {
 public:
    SharedQualifiers() = default;
    SharedQualifiers(std::vector<Qualifier> list)
        : list_(std::make_shared<const std::vector<Qualifier>>(std::move(list))) {}

    operator const std::vector<Qualifier>&() const noexcept { return list(); }
    const std::vector<Qualifier>& list() const noexcept {
        static const std::vector<Qualifier> none;
        return list_ ? *list_ : none;
    }

 private:
    std::shared_ptr<const std::vector<Qualifier>> list_;
};

struct PropertyDefinition {
    PropertyId id;
    std::string name;
    std::string folded_name;
    std::wstring wide_name;
    PropertyType type;
    Value default_value;
    SharedQualifiers qualifiers;  // its own and the inherited ones
    std::string origin;           // the class that declared it first
    bool is_local = false;        // declared or redeclared by the class itself
    bool is_key = false;
    bool is_not_null = false;
};

// A method as a class has it: its own, or inherited as the nearest class above declares it.
struct MethodDefinition {
    std::string name;
    std::string folded_name;
    std::optional<PropertyType> return_type;  // none for void
    std::vector<ParameterDeclaration> parameters;
    std::vector<Qualifier> qualifiers;  // its own and the inherited ones, as those of the parameters
    std::string origin;                 // the class that declared it first
    bool is_local = false;              // declared or redeclared by the class itself
};
using MethodPtr = std::shared_ptr<const MethodDefinition>;

class ClassDefinition;
using ClassPtr = std::shared_ptr<const ClassDefinition>;

class ClassDefinition {
 public:
    // Checks `declaration` (names, duplicates, types and defaults, what it declares anew, keys, limits) and
    // joins it with `superclass` (null for a root class). `class_id` is the store's number for the class.
    //
    // A qualifier goes to subclasses when its flavor says so. One that is not to be overridden may stand
    // there again with the same value only (WBEM_E_OVERRIDE_NOT_ALLOWED).
    static Result<ClassPtr> Resolve(uint32_t class_id, ClassDeclaration declaration, ClassPtr superclass);

    // The class with only those of its properties, by index: what a query asked for. An instance made with it
    // from a stored one reads the same values.
    ClassPtr Select(const std::vector<size_t>& properties) const;
    // Whether Select left something out, and whether a key.
    bool IsPartial() const noexcept { return is_partial_; }
    bool LacksKeys() const noexcept { return lacks_keys_; }

    uint32_t Id() const noexcept { return class_id_; }
    const std::string& Name() const noexcept { return declaration_.name; }
    const std::string& FoldedName() const noexcept { return folded_name_; }
    const ClassDeclaration& Declaration() const noexcept { return declaration_; }
    const ClassPtr& Superclass() const noexcept { return superclass_; }
    const std::vector<Qualifier>& Qualifiers() const noexcept { return qualifiers_; }
    bool IsAbstract() const noexcept { return is_abstract_; }
    bool IsSingleton() const noexcept { return is_singleton_; }
    // Whether a property holds embedded objects.
    bool HasObjects() const noexcept { return has_objects_; }

    // Inherited properties first, in the order of their declaration; the order is part of the definition.
    const std::vector<PropertyDefinition>& Properties() const noexcept { return properties_; }

    // Inherited methods first, in the order of their declaration; classes share what they inherit unchanged.
    const std::vector<MethodPtr>& Methods() const noexcept { return methods_; }

    // The method of that name, without regard to case; null when there is none.
    MethodPtr FindMethod(std::string_view name) const;

    // Indexes of all properties, in the order of their names, code point by code point.
    const std::vector<uint32_t>& NameOrder() const noexcept { return name_order_; }

    // Indexes of the key properties, in the order of Properties().
    const std::vector<size_t>& Keys() const noexcept { return keys_; }

    // The index of the property of that name, without regard to case.
    std::optional<size_t> FindProperty(std::string_view name) const;
    std::optional<size_t> FindProperty(std::wstring_view name) const;

    // Whether the class is the one named or derives from it.
    bool IsA(std::string_view class_name) const;

    // The names of the superclasses, the nearest first.
    std::vector<std::string> Derivation() const;

    // The topmost superclass, or the class itself.
    const std::string& DynastyName() const noexcept;

 private:
    ClassDefinition() = default;
    ClassDefinition(const ClassDefinition&) = default;
    Status Inherit();
    Status JoinFeatures();
    Status JoinProperties();
    Status JoinMethods();
    void IndexProperties();
    Status Join(const PropertyDeclaration& declared);
    Status Redeclare(PropertyDefinition& inherited, const PropertyDeclaration& declared);
    Status Join(const MethodDeclaration& declared);
    Status CheckMayBeKey(const PropertyDeclaration& declared) const;
    Status CheckKeys() const;
    Status TooManyProperties() const;

    uint32_t class_id_ = 0;
    ClassDeclaration declaration_;
    ClassPtr superclass_;
    std::string folded_name_;
    std::vector<Qualifier> qualifiers_;
    std::vector<PropertyDefinition> properties_;
    std::vector<MethodPtr> methods_;
    std::vector<size_t> keys_;
    std::vector<uint32_t> name_order_;
    bool is_abstract_ = false;
    bool is_singleton_ = false;
    bool has_objects_ = false;
    bool is_partial_ = false;
    bool lacks_keys_ = false;
};

// WBEM_E_INVALID_PARAMETER, saying why, unless `name` may name a class, property, method or qualifier: a
// letter, an underscore or a character beyond ASCII, then these and digits. Names that begin with two
// underscores are the service's own; `allow_system` lets them pass.
Status CheckName(std::string_view what, std::string_view name, bool allow_system = false);

}  // namespace service
