// IWbemClassObject's methods that are about the methods of a class.
#include <string>
#include <utility>
#include <vector>

#include "service/com/class_methods.h"
#include "service/com/class_object.h"
#include "service/com/qualifier_set.h"
#include "service/com/variant_conversion.h"

namespace service {
namespace {

Status MethodsStay() {
    return {WBEM_E_NOT_SUPPORTED,
            "methods are not changed through a class object: import the class's declaration as MOF"};
}

Status CheckHasMethods(bool is_class) {
    if (is_class) return {};
    return {WBEM_E_INVALID_OPERATION, "the methods of an instance are its class's: ask the class for them"};
}

bool AreMethodFlags(long flags) noexcept {
    return flags == 0 || flags == WBEM_FLAG_LOCAL_ONLY || flags == WBEM_FLAG_PROPAGATED_ONLY;
}

bool IsShown(const MethodDefinition& method, long flags) noexcept {
    if (flags == WBEM_FLAG_LOCAL_ONLY) return method.is_local;
    return flags != WBEM_FLAG_PROPAGATED_ONLY || !method.is_local;
}

// Hands out the signatures that are asked for, both or none.
Status PutSignatures(const ConnectionPtr& connection, const MethodDefinition& method, IWbemClassObject** in,
                     IWbemClassObject** out) {
    CComPtr<ClassObject> in_signature;
    CComPtr<ClassObject> out_signature;
    if (in) {
        SERVICE_ASSIGN_OR_RETURN(in_signature, SignatureOf(connection, method, Direction::kIn));
    }
    if (out) {
        SERVICE_ASSIGN_OR_RETURN(out_signature, SignatureOf(connection, method, Direction::kOut));
    }
    if (in) *in = in_signature.Detach();
    if (out) *out = out_signature.Detach();
    return {};
}

}  // namespace

HRESULT ClassObject::GetMethod(LPCWSTR wszName, long lFlags, IWbemClassObject** ppInSignature,
                               IWbemClassObject** ppOutSignature) {
    return AtBoundary([&]() -> Status {
        if (ppInSignature) *ppInSignature = nullptr;
        if (ppOutSignature) *ppOutSignature = nullptr;
        if (!wszName) return NullArgument("wszName");
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        SERVICE_RETURN_IF_ERROR(CheckHasMethods(IsClass()));
        SERVICE_ASSIGN_OR_RETURN(const MethodPtr method, FindMethod(*Definition(), wszName));
        return PutSignatures(connection_, *method, ppInSignature, ppOutSignature);
    });
}
HRESULT ClassObject::PutMethod(LPCWSTR, long, IWbemClassObject*, IWbemClassObject*) {
    return AtBoundary(MethodsStay);
}
HRESULT ClassObject::DeleteMethod(LPCWSTR) {
    return AtBoundary(MethodsStay);
}

HRESULT ClassObject::BeginMethodEnumeration(long lEnumFlags) {
    return AtBoundary([&]() -> Status {
        SERVICE_RETURN_IF_ERROR(CheckHasMethods(IsClass()));
        if (!AreMethodFlags(lEnumFlags)) {
            return {WBEM_E_INVALID_PARAMETER,
                    "the flags of a method enumeration are 0, local only or propagated only"};
        }
        method_enumeration_ = Enumeration{lEnumFlags, 0};
        return {};
    });
}

HRESULT ClassObject::NextMethod(long lFlags, BSTR* pstrName, IWbemClassObject** ppInSignature,
                                IWbemClassObject** ppOutSignature) {
    bool has_more = true;
    const HRESULT result = AtBoundary([&]() -> Status {
        if (pstrName) *pstrName = nullptr;
        if (ppInSignature) *ppInSignature = nullptr;
        if (ppOutSignature) *ppOutSignature = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckNoFlags(lFlags));
        if (!method_enumeration_)
            return {WBEM_E_UNEXPECTED,
                    "no enumeration of the methods has begun: call BeginMethodEnumeration first"};
        const std::vector<MethodPtr>& methods = Definition()->Methods();
        size_t& position = method_enumeration_->position;
        while (position < methods.size() && !IsShown(*methods[position], method_enumeration_->flags))
            ++position;
        has_more = position < methods.size();
        if (!has_more) return {};
        const MethodDefinition& method = *methods[position++];
        CComBSTR name;
        SERVICE_ASSIGN_OR_RETURN(name.m_str, MakeBstr(method.name));
        SERVICE_RETURN_IF_ERROR(PutSignatures(connection_, method, ppInSignature, ppOutSignature));
        if (pstrName) *pstrName = name.Detach();
        return {};
    });
    return result == S_OK && !has_more ? static_cast<HRESULT>(WBEM_S_NO_MORE_DATA) : result;
}

HRESULT ClassObject::EndMethodEnumeration() {
    method_enumeration_.reset();
    return S_OK;
}

HRESULT ClassObject::GetMethodQualifierSet(LPCWSTR wszMethod, IWbemQualifierSet** ppQualSet) {
    return AtBoundary([&]() -> Status {
        if (!wszMethod || !ppQualSet) return NullArgument("the argument");
        *ppQualSet = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckHasMethods(IsClass()));
        SERVICE_ASSIGN_OR_RETURN(MethodPtr method, FindMethod(*Definition(), wszMethod));
        *ppQualSet = QualifierSet::OfMethod(CComPtr<ClassObject>(this), std::move(method)).Detach();
        return {};
    });
}

HRESULT ClassObject::GetMethodOrigin(LPCWSTR wszMethodName, BSTR* pstrClassName) {
    return AtBoundary([&]() -> Status {
        if (!wszMethodName || !pstrClassName) return NullArgument("the argument");
        SERVICE_RETURN_IF_ERROR(CheckHasMethods(IsClass()));
        SERVICE_ASSIGN_OR_RETURN(const MethodPtr method, FindMethod(*Definition(), wszMethodName));
        SERVICE_ASSIGN_OR_RETURN(*pstrClassName, MakeBstr(method->origin));
        return {};
    });
}

}  // namespace service
