// ClassObject: IWbemClassObject for classes and instances. Only for service/com.
//
//   CComPtr<ClassObject> object = ClassObject::OfInstance(connection, std::move(instance));
//   CComPtr<ClassObject> object = ClassObject::OfClass(connection, definition);
//
// An object is a value of its own: changes stay in it until IWbemServices puts it. It belongs to one thread
// at a time, as a caller's objects do; its reference count may be changed on any.
#pragma once

#include <optional>
#include <string>
#include <variant>

#include <wbemidl.h>

#include "service/com/boundary.h"
#include "service/com/com_object.h"
#include "service/com/connection.h"
#include "service/model/instance.h"

namespace service {

// How the service knows its own objects among those it is handed; nobody else implements this.
struct IServiceObject : IUnknown {
    virtual class ClassObject* Self() noexcept = 0;

 protected:
    ~IServiceObject() = default;
};

}  // namespace service

template <>
struct ComUuid<service::IServiceObject> {
    static constexpr IID value = {
        0x5e1f0b7a, 0x9c40, 0x4d6e, {0x8f, 0x21, 0x3a, 0x6b, 0xd4, 0x90, 0x17, 0xc2}};
};

namespace service {

// A class while it is looked at or changed: what is declared, and what the declaration comes to.
struct EditedClass {
    ClassDeclaration declaration;
    ClassPtr superclass;
    ClassPtr definition;
};

class ClassObject final : public ComObject<IWbemClassObject, IServiceObject> {
 public:
    static CComPtr<ClassObject> OfInstance(ConnectionPtr connection, Instance instance);
    static CComPtr<ClassObject> OfClass(ConnectionPtr connection, const ClassPtr& definition);
    // A class without a name, properties or superclass, for a caller to fill in.
    static Result<CComPtr<ClassObject>> OfNewClass(ConnectionPtr connection, ClassPtr superclass);

    // The service's object behind `object`; null when it is somebody else's.
    static CComPtr<ClassObject> From(IUnknown* object) noexcept;

    bool IsClass() const noexcept { return std::holds_alternative<EditedClass>(state_); }
    const Instance& AsInstance() const { return std::get<Instance>(state_); }
    const EditedClass& AsClass() const { return std::get<EditedClass>(state_); }
    const ClassPtr& Definition() const noexcept;
    const ConnectionPtr& connection() const noexcept { return connection_; }

    // Replaces the declaration when what comes of it is a class; the object is unchanged on a fault.
    Status Redeclare(ClassDeclaration declaration);

    ClassObject* Self() noexcept override { return this; }

    HRESULT STDMETHODCALLTYPE GetQualifierSet(IWbemQualifierSet** ppQualSet) override;
    HRESULT STDMETHODCALLTYPE Get(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE* pType,
                                  long* plFlavor) override;
    HRESULT STDMETHODCALLTYPE Put(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE Type) override;
    HRESULT STDMETHODCALLTYPE Delete(LPCWSTR wszName) override;
    HRESULT STDMETHODCALLTYPE GetNames(LPCWSTR wszQualifierName, long lFlags, VARIANT* pQualifierVal,
                                       SAFEARRAY** pNames) override;
    HRESULT STDMETHODCALLTYPE BeginEnumeration(long lEnumFlags) override;
    HRESULT STDMETHODCALLTYPE Next(long lFlags, BSTR* strName, VARIANT* pVal, CIMTYPE* pType,
                                   long* plFlavor) override;
    HRESULT STDMETHODCALLTYPE EndEnumeration() override;
    HRESULT STDMETHODCALLTYPE GetPropertyQualifierSet(LPCWSTR wszProperty,
                                                      IWbemQualifierSet** ppQualSet) override;
    HRESULT STDMETHODCALLTYPE Clone(IWbemClassObject** ppCopy) override;
    HRESULT STDMETHODCALLTYPE GetObjectText(long lFlags, BSTR* pstrObjectText) override;
    HRESULT STDMETHODCALLTYPE SpawnDerivedClass(long lFlags, IWbemClassObject** ppNewClass) override;
    HRESULT STDMETHODCALLTYPE SpawnInstance(long lFlags, IWbemClassObject** ppNewInstance) override;
    HRESULT STDMETHODCALLTYPE CompareTo(long lFlags, IWbemClassObject* pCompareTo) override;
    HRESULT STDMETHODCALLTYPE GetPropertyOrigin(LPCWSTR wszName, BSTR* pstrClassName) override;
    HRESULT STDMETHODCALLTYPE InheritsFrom(LPCWSTR strAncestor) override;
    HRESULT STDMETHODCALLTYPE GetMethod(LPCWSTR wszName, long lFlags, IWbemClassObject** ppInSignature,
                                        IWbemClassObject** ppOutSignature) override;
    HRESULT STDMETHODCALLTYPE PutMethod(LPCWSTR wszName, long lFlags, IWbemClassObject* pInSignature,
                                        IWbemClassObject* pOutSignature) override;
    HRESULT STDMETHODCALLTYPE DeleteMethod(LPCWSTR wszName) override;
    HRESULT STDMETHODCALLTYPE BeginMethodEnumeration(long lEnumFlags) override;
    HRESULT STDMETHODCALLTYPE NextMethod(long lFlags, BSTR* pstrName, IWbemClassObject** ppInSignature,
                                         IWbemClassObject** ppOutSignature) override;
    HRESULT STDMETHODCALLTYPE EndMethodEnumeration() override;
    HRESULT STDMETHODCALLTYPE GetMethodQualifierSet(LPCWSTR wszMethod,
                                                    IWbemQualifierSet** ppQualSet) override;
    HRESULT STDMETHODCALLTYPE GetMethodOrigin(LPCWSTR wszMethodName, BSTR* pstrClassName) override;

 private:
    template <typename Object, typename... Arguments>
    friend CComPtr<Object> MakeCom(Arguments&&... arguments);
    using State = std::variant<Instance, EditedClass>;

    ClassObject(ConnectionPtr connection, State state)
        : connection_(std::move(connection)), state_(std::move(state)) {}
    ~ClassObject() override = default;

    struct Enumeration {
        long flags = 0;
        size_t position = 0;
    };

    bool IsLocal(size_t index) const;
    bool IsListed(size_t index, long flags) const;
    // Runs `function`, and names the instance and the namespace in what it fails with.
    template <typename Function>
    HRESULT AtObject(Function&& function) const;
    Status ReadProperty(size_t index, VARIANT* variant) const;
    Status PutInstanceProperty(size_t index, const VARIANT* variant, CIMTYPE type);
    Status PutClassProperty(const std::string& name, const VARIANT* variant, CIMTYPE type);
    Status PutSystemProperty(const std::string& name, const VARIANT* variant);
    Result<std::string> TextOf(long flags) const;
    void FillIn(size_t index, CIMTYPE* type, long* flavor) const;

    const ConnectionPtr connection_;
    State state_;
    std::optional<Enumeration> enumeration_;
    std::optional<Enumeration> method_enumeration_;
};

// How embedded objects travel to and from variants.
Result<IUnknown*> WrapEmbedded(const ConnectionPtr& connection, const ObjectPtr& object);
Result<ObjectPtr> UnwrapEmbedded(IUnknown* object);

}  // namespace service
