#include "service/com/class_object.h"

#include <algorithm>
#include <utility>

#include "service/com/qualifier_set.h"
#include "service/com/system_properties.h"
#include "service/com/variant_conversion.h"
#include "service/language/mof_writer.h"
#include "service/model/limits.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr auto kUnwrap = [](IUnknown* object) { return UnwrapEmbedded(object); };
CIMTYPE PublishedType(const PropertyType& type) noexcept {
    return static_cast<CIMTYPE>(type.type) | (type.is_array ? CIM_FLAG_ARRAY : 0);
}

Status UnknownProperty(const ClassDefinition& definition, LPCWSTR name) {
    constexpr size_t kShown = 8;
    const auto& properties = definition.Properties();
    std::string known;
    for (size_t i = 0; i < std::min(properties.size(), kShown); ++i)
        known += (i > 0 ? ", " : "") + properties[i].name;
    if (properties.size() > kShown) known += " and " + std::to_string(properties.size() - kShown) + " more";
    return {WBEM_E_NOT_FOUND, "class " + definition.Name() + " has no property " +
                                  ClipForMessage(ToUtf8Lossy(name), kMaxNameBytes) + ": " +
                                  (known.empty() ? "it has none" : "those that it has are " + known)};
}

// The flavors that a qualifier is declared with; `declared` is in the order of folded names, or null.
std::optional<uint32_t> DeclaredFlavor(const std::vector<QualifierDeclaration>* declared,
                                       std::string_view name) {
    if (!declared) return std::nullopt;
    const std::string folded = Fold(name);
    const auto found = std::lower_bound(
        declared->begin(), declared->end(), folded,
        [](const QualifierDeclaration& each, const std::string& wanted) { return Fold(each.name) < wanted; });
    if (found == declared->end() || Fold(found->name) != folded) return std::nullopt;
    return found->flavor;
}

// How a class that has no name yet is called while its properties are put together.
constexpr const char* kUnnamed = "Unnamed";

Result<ClassPtr> ResolveEdited(ClassDeclaration declaration, const ClassPtr& superclass, uint32_t class_id) {
    if (declaration.name.empty()) declaration.name = kUnnamed;
    return ClassDefinition::Resolve(class_id, std::move(declaration), superclass);
}

}  // namespace

CComPtr<ClassObject> ClassObject::OfInstance(ConnectionPtr connection, Instance instance) {
    return MakeCom<ClassObject>(std::move(connection), State(std::move(instance)));
}

CComPtr<ClassObject> ClassObject::OfClass(ConnectionPtr connection, const ClassPtr& definition) {
    return MakeCom<ClassObject>(
        std::move(connection),
        State(EditedClass{definition->Declaration(), definition->Superclass(), definition}));
}

Result<CComPtr<ClassObject>> ClassObject::OfNewClass(ConnectionPtr connection, ClassPtr superclass) {
    ClassDeclaration declaration;
    if (superclass) declaration.superclass = superclass->Name();
    SERVICE_ASSIGN_OR_RETURN(ClassPtr definition, ResolveEdited(declaration, superclass, 0));
    return MakeCom<ClassObject>(
        std::move(connection),
        State(EditedClass{std::move(declaration), std::move(superclass), std::move(definition)}));
}

CComPtr<ClassObject> ClassObject::From(IUnknown* object) noexcept {
    CComPtr<IServiceObject> own;
    if (!object || FAILED(object->QueryInterface(IID_PPV_ARGS(&own)))) return {};
    return CComPtr<ClassObject>(own->Self());
}

const ClassPtr& ClassObject::Definition() const noexcept {
    const auto* edited = std::get_if<EditedClass>(&state_);
    return edited ? edited->definition : std::get_if<Instance>(&state_)->Class();
}

Status ClassObject::Redeclare(ClassDeclaration declaration) {
    auto& edited = std::get<EditedClass>(state_);
    SERVICE_ASSIGN_OR_RETURN(edited.definition,
                             ResolveEdited(declaration, edited.superclass, edited.definition->Id()));
    edited.declaration = std::move(declaration);
    enumeration_.reset();
    method_enumeration_.reset();
    return {};
}

// What is local: for a class what it declares itself, for an instance what was set on it.
bool ClassObject::IsLocal(size_t index) const {
    if (IsClass()) return Definition()->Properties()[index].is_local;
    return AsInstance().IsSet(index);
}

Status ClassObject::ReadProperty(size_t index, VARIANT* variant) const {
    const PropertyDefinition& property = Definition()->Properties()[index];
    const auto wrap = [this](const ObjectPtr& object) { return WrapEmbedded(connection_, object); };
    if (IsClass()) return ToVariant(property.type, ViewOf(property.default_value), wrap, *variant);
    Value storage;
    ValueView view;
    SERVICE_RETURN_IF_ERROR(AsInstance().Read(index, storage, view));
    return ToVariant(property.type, view, wrap, *variant);
}

void ClassObject::FillIn(size_t index, CIMTYPE* type, long* flavor) const {
    if (type) *type = PublishedType(Definition()->Properties()[index].type);
    if (flavor) *flavor = IsLocal(index) ? WBEM_FLAVOR_ORIGIN_LOCAL : WBEM_FLAVOR_ORIGIN_PROPAGATED;
}

template <typename Function>
HRESULT ClassObject::AtObject(Function&& function) const {
    return AtBoundary([&]() -> Status {
        Status fault = function();
        if (fault.ok() || !connection_) return fault;
        const bool has_path = !IsClass() && !(Definition()->Keys().empty() && !Definition()->IsSingleton());
        const Result<std::string> path =
            has_path ? RelativePathOf(AsInstance()) : Status(WBEM_E_NOT_FOUND, "");
        const std::string place = path.ok() ? "instance " + ClipForMessage(*path, kMaxShownPath) + ", " : "";
        return {fault.code(), fault.reason() + " (" + place + "namespace " + connection_->space.path + ")"};
    });
}

HRESULT ClassObject::GetQualifierSet(IWbemQualifierSet** ppQualSet) {
    return AtBoundary([&]() -> Status {
        if (!ppQualSet) return NullArgument("ppQualSet");
        *ppQualSet = QualifierSet::OfClass(CComPtr<ClassObject>(this)).Detach();
        return {};
    });
}

HRESULT ClassObject::Get(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE* pType, long* plFlavor) {
    return AtObject([&]() -> Status {
        if (!wszName) return NullArgument("wszName");
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        const auto system = FindSystemProperty(wszName);
        if (!system) {
            const auto index = Definition()->FindProperty(std::wstring_view(wszName));
            if (!index) return UnknownProperty(*Definition(), wszName);
            if (pVal) SERVICE_RETURN_IF_ERROR(ReadProperty(*index, pVal));
            FillIn(*index, pType, plFlavor);
            return {};
        }
        const PropertyType& type = SystemPropertyAt(*system).type;
        SERVICE_ASSIGN_OR_RETURN(const Value value, ReadSystemProperty(*this, *system));
        const auto wrap = [this](const ObjectPtr& object) { return WrapEmbedded(connection_, object); };
        if (pVal) SERVICE_RETURN_IF_ERROR(ToVariant(type, ViewOf(value), wrap, *pVal));
        if (pType) *pType = PublishedType(type);
        if (plFlavor) *plFlavor = WBEM_FLAVOR_ORIGIN_SYSTEM;
        return {};
    });
}

HRESULT ClassObject::Put(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE Type) {
    return AtObject([&]() -> Status {
        if (!wszName) return NullArgument("wszName");
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        if (!IsClass()) {
            if (const auto index = Definition()->FindProperty(std::wstring_view(wszName))) {
                return PutInstanceProperty(*index, pVal, Type);
            }
        }
        SERVICE_ASSIGN_OR_RETURN(const std::string name,
                                 TakeText(std::wstring_view(wszName), "the property's name"));
        if (FindSystemProperty(wszName)) return PutSystemProperty(name, pVal);
        if (name.starts_with('_') || name.ends_with('_')) {
            return {WBEM_E_INVALID_PARAMETER,
                    "property name " + name + ": a name neither begins nor ends with an underscore"};
        }
        if (!IsClass()) return UnknownProperty(*Definition(), wszName);
        return PutClassProperty(name, pVal, Type);
    });
}

Status ClassObject::PutInstanceProperty(size_t index, const VARIANT* variant, CIMTYPE type) {
    const PropertyDefinition& property = Definition()->Properties()[index];
    if (type != 0) {
        return {WBEM_E_INVALID_PARAMETER,
                "property " + property.name +
                    ": the type of an instance's property is its class's, so the type argument must be 0"};
    }
    Value value;
    if (variant) {
        Result<Value> converted = FromVariant(property.type, *variant, kUnwrap);
        if (!converted.ok()) {
            return {converted.code(), "property " + Definition()->Name() + "." + property.name + ": " +
                                          converted.status().reason()};
        }
        value = std::move(*converted);
    }
    return std::get<Instance>(state_).Set(index, std::move(value));
}

// Creates the property, or changes its default. Without a type the one it has is kept.
Status ClassObject::PutClassProperty(const std::string& name, const VARIANT* variant, CIMTYPE type) {
    ClassDeclaration declaration = AsClass().declaration;
    auto& properties = declaration.properties;
    const auto same_name = [&](const PropertyDeclaration& property) {
        return EqualFolded(property.name, name);
    };
    auto declared = std::find_if(properties.begin(), properties.end(), same_name);
    const auto known = Definition()->FindProperty(std::string_view(name));
    if (declared == properties.end()) {
        PropertyDeclaration added;
        added.name = known ? Definition()->Properties()[*known].name : name;
        if (known) added.type = Definition()->Properties()[*known].type;
        properties.push_back(std::move(added));
        declared = std::prev(properties.end());
    }
    if (type != 0) {
        const long base = type & ~static_cast<long>(CIM_FLAG_ARRAY);
        if (base < 0 || base > UINT16_MAX || !IsCimType(static_cast<uint16_t>(base))) {
            return {WBEM_E_INVALID_PROPERTY_TYPE,
                    "property " + name + ": " + std::to_string(type) + " is no CIM type"};
        }
        declared->type.type = static_cast<CimType>(base);
        declared->type.is_array = (type & CIM_FLAG_ARRAY) != 0;
    } else if (!known) {
        return {WBEM_E_INVALID_PARAMETER,
                "property " + name + ": a new property needs its type, one of the CIM type codes"};
    }
    if (variant) {
        Result<Value> converted = FromVariant(declared->type, *variant, kUnwrap);
        if (!converted.ok())
            return {converted.code(), "the default of property " + name + ": " + converted.status().reason()};
        declared->default_value = std::move(*converted);
    } else {
        declared->default_value = {};
    }
    return Redeclare(std::move(declaration));
}

// The one system property that a caller sets is the name of a class.
Status ClassObject::PutSystemProperty(const std::string& name, const VARIANT* variant) {
    if (!IsClass() || !EqualFolded(name, "__CLASS")) {
        return {WBEM_E_READ_ONLY, "the system property " + name + " cannot be set"};
    }
    if (!variant || variant->vt != VT_BSTR)
        return {WBEM_E_TYPE_MISMATCH, "__CLASS takes a text, the name of the class"};
    SERVICE_ASSIGN_OR_RETURN(std::string class_name, TakeText(variant->bstrVal, "the class's name"));
    SERVICE_RETURN_IF_ERROR(CheckName("class", class_name));
    ClassDeclaration declaration = AsClass().declaration;
    declaration.name = std::move(class_name);
    return Redeclare(std::move(declaration));
}

// On an instance the property goes back to its class's default; on a class its own declaration goes.
HRESULT ClassObject::Delete(LPCWSTR wszName) {
    return AtObject([&]() -> Status {
        if (!wszName) return NullArgument("wszName");
        if (FindSystemProperty(wszName))
            return {WBEM_E_INVALID_OPERATION,
                    "the system property " + ToUtf8Lossy(wszName) + " cannot be deleted"};
        const auto index = Definition()->FindProperty(std::wstring_view(wszName));
        if (!index) return UnknownProperty(*Definition(), wszName);
        if (!IsClass()) {
            std::get<Instance>(state_).Unset(*index);
            return {};
        }
        const PropertyDefinition& property = Definition()->Properties()[*index];
        if (!property.is_local) {
            return {WBEM_E_PROPAGATED_PROPERTY, "property " + Definition()->Name() + "." + property.name +
                                                    " is inherited from " + property.origin +
                                                    ": delete it there"};
        }
        ClassDeclaration declaration = AsClass().declaration;
        std::erase_if(declaration.properties, [&](const PropertyDeclaration& declared) {
            return EqualFolded(declared.name, property.name);
        });
        return Redeclare(std::move(declaration));
    });
}

HRESULT ClassObject::GetPropertyQualifierSet(LPCWSTR wszProperty, IWbemQualifierSet** ppQualSet) {
    return AtBoundary([&]() -> Status {
        if (!wszProperty || !ppQualSet) return NullArgument("the argument");
        if (FindSystemProperty(wszProperty))
            return {WBEM_E_INVALID_OPERATION, "a system property has no qualifiers"};
        const auto index = Definition()->FindProperty(std::wstring_view(wszProperty));
        if (!index) return UnknownProperty(*Definition(), wszProperty);
        *ppQualSet =
            QualifierSet::OfProperty(CComPtr<ClassObject>(this), Definition()->Properties()[*index].name)
                .Detach();
        return {};
    });
}

HRESULT ClassObject::Clone(IWbemClassObject** ppCopy) {
    return AtBoundary([&]() -> Status {
        if (!ppCopy) return NullArgument("ppCopy");
        *ppCopy = MakeCom<ClassObject>(connection_, state_).Detach();
        return {};
    });
}

Result<std::string> ClassObject::TextOf(long flags) const {
    std::string text;
    if (!IsClass()) {
        SERVICE_RETURN_IF_ERROR(AppendInstanceMof(AsInstance(), text));
        return text;
    }
    const ClassDeclaration& declaration = AsClass().declaration;
    if (declaration.name.empty())
        return Status(WBEM_E_INCOMPLETE_CLASS,
                      "the class has no name: set __CLASS before asking for its text");
    MofForm form;
    form.with_flavors = (flags & WBEM_FLAG_NO_FLAVORS) == 0;
    SchemaCache::QualifierList declared;
    if (connection_) {
        SERVICE_RETURN_IF_ERROR(connection_->repository->Read([&](RepositoryReader& reader) -> Status {
            SERVICE_ASSIGN_OR_RETURN(declared, reader.QualifierDeclarations(connection_->space));
            return {};
        }));
    }
    form.declared_flavor = [&](std::string_view name) { return DeclaredFlavor(declared.get(), name); };
    SERVICE_RETURN_IF_ERROR(AppendClassMof(declaration, form, text));
    return text;
}

HRESULT ClassObject::GetObjectText(long lFlags, BSTR* pstrObjectText) {
    return AtBoundary([&]() -> Status {
        if (!pstrObjectText) return NullArgument("pstrObjectText");
        *pstrObjectText = nullptr;
        if (lFlags & ~static_cast<long>(WBEM_FLAG_NO_FLAVORS)) {
            return {WBEM_E_INVALID_PARAMETER, "the flags of an object's text are 0 or WBEM_FLAG_NO_FLAVORS"};
        }
        SERVICE_ASSIGN_OR_RETURN(const std::string text, TextOf(lFlags));
        SERVICE_ASSIGN_OR_RETURN(*pstrObjectText, MakeBstr(text));
        return {};
    });
}

HRESULT ClassObject::SpawnDerivedClass(long lFlags, IWbemClassObject** ppNewClass) {
    return AtBoundary([&]() -> Status {
        if (!ppNewClass) return NullArgument("ppNewClass");
        *ppNewClass = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        if (!IsClass())
            return {WBEM_E_INVALID_OPERATION, "a class derives from a class, not from an instance"};
        if (AsClass().declaration.name.empty()) return {WBEM_E_INCOMPLETE_CLASS, "the class has no name yet"};
        SERVICE_ASSIGN_OR_RETURN(CComPtr<ClassObject> spawned, OfNewClass(connection_, Definition()));
        *ppNewClass = spawned.Detach();
        return {};
    });
}

HRESULT ClassObject::SpawnInstance(long lFlags, IWbemClassObject** ppNewInstance) {
    return AtBoundary([&]() -> Status {
        if (!ppNewInstance) return NullArgument("ppNewInstance");
        *ppNewInstance = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        if (IsClass() && AsClass().declaration.name.empty())
            return {WBEM_E_INCOMPLETE_CLASS, "the class has no name yet"};
        if (Definition()->IsAbstract()) {
            return {WBEM_E_INVALID_OPERATION,
                    "class " + Definition()->Name() +
                        " is abstract and has no instances: spawn one of a class derived from it"};
        }
        *ppNewInstance = OfInstance(connection_, Instance(Definition())).Detach();
        return {};
    });
}

HRESULT ClassObject::CompareTo(long lFlags, IWbemClassObject* pCompareTo) {
    bool is_same = false;
    const HRESULT result = AtBoundary([&]() -> Status {
        if (!pCompareTo) return NullArgument("pCompareTo");
        if (lFlags != WBEM_COMPARISON_INCLUDE_ALL)
            return {WBEM_E_NOT_SUPPORTED, "only whole objects are compared: the flags must be 0"};
        const CComPtr<ClassObject> other = From(pCompareTo);
        if (!other) return {WBEM_E_INVALID_OBJECT, "the object is not one of this service"};
        is_same = !IsClass() && !other->IsClass()
                      ? SameInstance(AsInstance(), other->AsInstance())
                      : IsClass() == other->IsClass() && Definition() == other->Definition();
        return {};
    });
    return result == S_OK && !is_same ? static_cast<HRESULT>(WBEM_S_FALSE) : result;
}

HRESULT ClassObject::GetPropertyOrigin(LPCWSTR wszName, BSTR* pstrClassName) {
    return AtBoundary([&]() -> Status {
        if (!wszName || !pstrClassName) return NullArgument("the argument");
        const auto index = Definition()->FindProperty(std::wstring_view(wszName));
        if (!index) return UnknownProperty(*Definition(), wszName);
        SERVICE_ASSIGN_OR_RETURN(*pstrClassName, MakeBstr(Definition()->Properties()[*index].origin));
        return {};
    });
}

HRESULT ClassObject::InheritsFrom(LPCWSTR strAncestor) {
    bool inherits = false;
    const HRESULT result = AtBoundary([&]() -> Status {
        if (!strAncestor) return NullArgument("strAncestor");
        SERVICE_ASSIGN_OR_RETURN(const std::string name,
                                 TakeText(std::wstring_view(strAncestor), "the class's name"));
        inherits = Definition()->IsA(name);
        return {};
    });
    return result == S_OK && !inherits ? static_cast<HRESULT>(WBEM_S_FALSE) : result;
}

Result<IUnknown*> WrapEmbedded(const ConnectionPtr& connection, const ObjectPtr& object) {
    return static_cast<IUnknown*>(
        static_cast<IWbemClassObject*>(ClassObject::OfInstance(connection, *object).Detach()));
}

Result<ObjectPtr> UnwrapEmbedded(IUnknown* object) {
    const CComPtr<ClassObject> own = ClassObject::From(object);
    if (!own) return Status(WBEM_E_TYPE_MISMATCH, "the object is not one of this service");
    if (own->IsClass()) return Status(WBEM_E_TYPE_MISMATCH, "a class cannot be embedded, only an instance");
    if (own->Definition()->IsPartial()) {
        return Status(WBEM_E_INVALID_OBJECT,
                      "the object has only the properties that a query asked for: get the whole instance");
    }
    return ObjectPtr(std::make_shared<const Instance>(own->AsInstance()));
}

}  // namespace service
