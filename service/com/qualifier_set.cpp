#include "service/com/qualifier_set.h"

#include <utility>

#include "service/com/variant_conversion.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr auto kNoObjects = [](const ObjectPtr&) -> Result<IUnknown*> {
    return Status(WBEM_E_TYPE_MISMATCH, "a qualifier holds no object");
};
constexpr auto kNoInterfaces = [](IUnknown*) -> Result<ObjectPtr> {
    return Status(WBEM_E_TYPE_MISMATCH, "a qualifier holds no object");
};

constexpr std::string_view kTypeQualifier = "CIMTYPE";
constexpr long kSettableFlavor =
    kFlavorToInstance | kFlavorToSubclass | kFlavorNotOverridable | kFlavorAmended;

Status ReadQualifier(const Qualifier& qualifier, VARIANT* variant) {
    return ToVariant(qualifier.type, ViewOf(qualifier.value), kNoObjects, *variant);
}

// The published variants of a qualifier: VT_I4, VT_R8, VT_BOOL, VT_BSTR and arrays of them.
Result<PropertyType> TypeOfVariant(VARTYPE variant_type) {
    PropertyType type;
    type.is_array = (variant_type & VT_ARRAY) != 0;
    switch (variant_type & VT_TYPEMASK) {
        case VT_I4:
            type.type = CimType::kSint32;
            return type;
        case VT_R8:
            type.type = CimType::kReal64;
            return type;
        case VT_BOOL:
            type.type = CimType::kBoolean;
            return type;
        case VT_BSTR:
            type.type = CimType::kString;
            return type;
        default:
            return Status(WBEM_E_INVALID_QUALIFIER_TYPE,
                          "a qualifier is a text, a number, a boolean or an array of one of these");
    }
}

}  // namespace

CComPtr<QualifierSet> QualifierSet::OfClass(CComPtr<ClassObject> object) {
    return MakeCom<QualifierSet>(std::move(object), std::nullopt, nullptr);
}

CComPtr<QualifierSet> QualifierSet::OfProperty(CComPtr<ClassObject> object, std::string property) {
    return MakeCom<QualifierSet>(std::move(object), std::move(property), nullptr);
}

CComPtr<QualifierSet> QualifierSet::OfMethod(CComPtr<ClassObject> object, MethodPtr method) {
    return MakeCom<QualifierSet>(std::move(object), std::nullopt, std::move(method));
}

const std::vector<Qualifier>& QualifierSet::InEffect() const {
    static const std::vector<Qualifier> none;
    if (method_) return method_->qualifiers;
    const ClassDefinition& definition = *object_->Definition();
    if (!property_) return definition.Qualifiers();
    const auto index = definition.FindProperty(std::string_view(*property_));
    return index ? definition.Properties()[*index].qualifiers.list() : none;
}

std::vector<Qualifier>& QualifierSet::OwnOf(ClassDeclaration& declaration) const {
    if (!property_) return declaration.qualifiers;
    for (PropertyDeclaration& property : declaration.properties) {
        if (EqualFolded(property.name, *property_)) return property.qualifiers;
    }
    PropertyDeclaration redeclared;
    redeclared.name = *property_;
    const ClassDefinition& definition = *object_->Definition();
    if (const auto index = definition.FindProperty(std::string_view(*property_))) {
        redeclared.type = definition.Properties()[*index].type;
    }
    return declaration.properties.emplace_back(std::move(redeclared)).qualifiers;
}

bool QualifierSet::IsOwn(const Qualifier& qualifier) const {
    if (!object_->IsClass()) return false;
    if (method_) return IsOwnOfMethod(qualifier);
    const ClassDeclaration& declaration = object_->AsClass().declaration;
    if (!property_) return FindQualifier(declaration.qualifiers, qualifier.name) != nullptr;
    for (const PropertyDeclaration& property : declaration.properties) {
        if (EqualFolded(property.name, *property_))
            return FindQualifier(property.qualifiers, qualifier.name) != nullptr;
    }
    return false;
}

bool QualifierSet::IsOwnOfMethod(const Qualifier& qualifier) const {
    for (const MethodDeclaration& method : object_->AsClass().declaration.methods) {
        if (EqualFolded(method.name, method_->name))
            return FindQualifier(method.qualifiers, qualifier.name) != nullptr;
    }
    return false;
}

std::string QualifierSet::Owner() const {
    const std::string& name = object_->Definition()->Name();
    if (method_) return "method " + name + "." + method_->name;
    return property_ ? "property " + name + "." + *property_ : "class " + name;
}

Status QualifierSet::CheckCanChange() const {
    if (method_) {
        return {WBEM_E_NOT_SUPPORTED,
                "the qualifiers of a method are not changed through a class object: "
                "import the class's declaration as MOF"};
    }
    if (object_->IsClass()) return {};
    return {WBEM_E_INVALID_OPERATION, "the qualifiers of an instance are its class's: change them there"};
}

void QualifierSet::FillIn(const Qualifier& qualifier, long* flavor) const {
    if (!flavor) return;
    *flavor = static_cast<long>(qualifier.flavor) |
              (IsOwn(qualifier) ? WBEM_FLAVOR_ORIGIN_LOCAL : WBEM_FLAVOR_ORIGIN_PROPAGATED);
}

// CIMTYPE is a qualifier that every property has without its being declared: "uint32", "ref:Account".
Status QualifierSet::ReadTypeQualifier(VARIANT* variant) const {
    const ClassDefinition& definition = *object_->Definition();
    const auto index = definition.FindProperty(std::string_view(*property_));
    if (!index)
        return {WBEM_E_NOT_FOUND,
                "class " + definition.Name() + " has no property " + *property_ + " any more"};
    PropertyType type = definition.Properties()[*index].type;
    type.is_array = false;
    const Value text(DescribeType(type));
    return ToVariant({CimType::kString, false, 0, {}}, ViewOf(text), kNoObjects, *variant);
}

HRESULT QualifierSet::Get(LPCWSTR wszName, long lFlags, VARIANT* pVal, long* plFlavor) {
    return AtBoundary([&]() -> Status {
        if (!wszName || lFlags != 0) return {WBEM_E_INVALID_PARAMETER, "a name is needed, and flags of 0"};
        const Qualifier* qualifier = FindQualifier(InEffect(), ToUtf8Lossy(wszName));
        if (!qualifier && property_ && EqualFolded(ToUtf8Lossy(wszName), kTypeQualifier)) {
            if (pVal) SERVICE_RETURN_IF_ERROR(ReadTypeQualifier(pVal));
            if (plFlavor) *plFlavor = WBEM_FLAVOR_FLAG_PROPAGATE_TO_DERIVED_CLASS;
            return {};
        }
        if (!qualifier) return {WBEM_E_NOT_FOUND, Owner() + " has no qualifier " + ToUtf8Lossy(wszName)};
        if (pVal) SERVICE_RETURN_IF_ERROR(ReadQualifier(*qualifier, pVal));
        FillIn(*qualifier, plFlavor);
        return {};
    });
}

HRESULT QualifierSet::Put(LPCWSTR wszName, VARIANT* pVal, long lFlavor) {
    return AtBoundary([&]() -> Status {
        if (!wszName || !pVal || (lFlavor & ~kSettableFlavor)) {
            return {WBEM_E_INVALID_PARAMETER, "a name, a value and a published flavor are needed"};
        }
        SERVICE_RETURN_IF_ERROR(CheckCanChange());
        Qualifier qualifier;
        SERVICE_ASSIGN_OR_RETURN(qualifier.name,
                                 TakeText(std::wstring_view(wszName), "the qualifier's name"));
        qualifier.flavor = static_cast<uint32_t>(lFlavor);
        SERVICE_ASSIGN_OR_RETURN(qualifier.type, TypeOfVariant(pVal->vt));
        SERVICE_ASSIGN_OR_RETURN(qualifier.value, FromVariant(qualifier.type, *pVal, kNoInterfaces));

        ClassDeclaration declaration = object_->AsClass().declaration;
        std::vector<Qualifier>& own = OwnOf(declaration);
        std::erase_if(own, [&](const Qualifier& each) { return EqualFolded(each.name, qualifier.name); });
        own.push_back(std::move(qualifier));
        return object_->Redeclare(std::move(declaration));
    });
}

HRESULT QualifierSet::Delete(LPCWSTR wszName) {
    return AtBoundary([&]() -> Status {
        if (!wszName) return {WBEM_E_INVALID_PARAMETER, "a name is needed"};
        SERVICE_RETURN_IF_ERROR(CheckCanChange());
        const std::string name = ToUtf8Lossy(wszName);
        const Qualifier* qualifier = FindQualifier(InEffect(), name);
        if (!qualifier) return {WBEM_E_NOT_FOUND, Owner() + " has no qualifier " + name};
        if (!IsOwn(*qualifier))
            return {WBEM_E_PROPAGATED_QUALIFIER,
                    "the qualifier " + name + " is inherited: delete it from the class that gives it"};
        ClassDeclaration declaration = object_->AsClass().declaration;
        std::erase_if(OwnOf(declaration),
                      [&](const Qualifier& each) { return EqualFolded(each.name, name); });
        return object_->Redeclare(std::move(declaration));
    });
}

HRESULT QualifierSet::GetNames(long, SAFEARRAY** pNames) {
    return AtBoundary([&]() -> Status {
        if (!pNames) return NullArgument("pNames");
        Array names;
        for (const Qualifier& qualifier : InEffect())
            names.emplace_back(qualifier.name);
        SERVICE_ASSIGN_OR_RETURN(*pNames, MakeNameArray(names));
        return {};
    });
}

HRESULT QualifierSet::BeginEnumeration(long) {
    position_ = 0;
    return S_OK;
}

HRESULT QualifierSet::Next(long, BSTR* pstrName, VARIANT* pVal, long* plFlavor) {
    bool has_more = true;
    const HRESULT result = AtBoundary([&]() -> Status {
        if (!position_)
            return {WBEM_E_UNEXPECTED,
                    "no enumeration of these qualifiers has begun: call BeginEnumeration first"};
        const std::vector<Qualifier>& qualifiers = InEffect();
        has_more = *position_ < qualifiers.size();
        if (!has_more) return {};
        const Qualifier& qualifier = qualifiers[(*position_)++];
        CComBSTR name;
        SERVICE_ASSIGN_OR_RETURN(BSTR text, MakeBstr(qualifier.name));
        name.Attach(text);
        if (pVal) SERVICE_RETURN_IF_ERROR(ReadQualifier(qualifier, pVal));
        FillIn(qualifier, plFlavor);
        if (pstrName) *pstrName = name.Detach();
        return {};
    });
    return result == S_OK && !has_more ? static_cast<HRESULT>(WBEM_S_NO_MORE_DATA) : result;
}

HRESULT QualifierSet::EndEnumeration() {
    position_.reset();
    return S_OK;
}

}  // namespace service
