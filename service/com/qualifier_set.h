// QualifierSet: IWbemQualifierSet over the qualifiers of a class, or of one of its properties or methods.
// Only for service/com.
//
//   *ppQualSet = QualifierSet::OfProperty(object, "KeepDays").Detach();
//
// It shows what is in effect, the inherited qualifiers included, and changes the class object's own
// declaration. The qualifiers of an instance are its class's and cannot be changed, and neither can
// those of a method.
#pragma once

#include <optional>
#include <string>

#include "service/com/class_object.h"

namespace service {

class QualifierSet final : public ComObject<IWbemQualifierSet> {
 public:
    static CComPtr<QualifierSet> OfClass(CComPtr<ClassObject> object);
    static CComPtr<QualifierSet> OfProperty(CComPtr<ClassObject> object, std::string property);
    static CComPtr<QualifierSet> OfMethod(CComPtr<ClassObject> object, MethodPtr method);

    HRESULT STDMETHODCALLTYPE Get(LPCWSTR wszName, long lFlags, VARIANT* pVal, long* plFlavor) override;
    HRESULT STDMETHODCALLTYPE Put(LPCWSTR wszName, VARIANT* pVal, long lFlavor) override;
    HRESULT STDMETHODCALLTYPE Delete(LPCWSTR wszName) override;
    HRESULT STDMETHODCALLTYPE GetNames(long lFlags, SAFEARRAY** pNames) override;
    HRESULT STDMETHODCALLTYPE BeginEnumeration(long lFlags) override;
    HRESULT STDMETHODCALLTYPE Next(long lFlags, BSTR* pstrName, VARIANT* pVal, long* plFlavor) override;
    HRESULT STDMETHODCALLTYPE EndEnumeration() override;

 private:
    template <typename Object, typename... Arguments>
    friend CComPtr<Object> MakeCom(Arguments&&... arguments);

    QualifierSet(CComPtr<ClassObject> object, std::optional<std::string> property, MethodPtr method)
        : object_(std::move(object)), property_(std::move(property)), method_(std::move(method)) {}
    ~QualifierSet() override = default;

    const std::vector<Qualifier>& InEffect() const;
    // Those that a declaration sets itself; declares the property anew where the class only inherits it.
    std::vector<Qualifier>& OwnOf(ClassDeclaration& declaration) const;
    bool IsOwn(const Qualifier& qualifier) const;
    bool IsOwnOfMethod(const Qualifier& qualifier) const;
    Status CheckCanChange() const;
    std::string Owner() const;  // "property Policy.Days", for messages
    Status ReadTypeQualifier(VARIANT* variant) const;
    void FillIn(const Qualifier& qualifier, long* flavor) const;

    const CComPtr<ClassObject> object_;
    const std::optional<std::string> property_;
    const MethodPtr method_;  // null for the qualifiers of a class or property
    std::optional<size_t> position_;
};

}  // namespace service
