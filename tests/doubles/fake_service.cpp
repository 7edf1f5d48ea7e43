#include "tests/doubles/fake_service.h"

#include <algorithm>
#include <cwctype>
#include <new>
#include <thread>
#include <utility>

#include "tests/doubles/com_object.h"
#include "tests/doubles/refusing_interfaces.h"

namespace doubles {
namespace {

constexpr wchar_t KEY[] = L"INSTANCE_ID";
constexpr wchar_t PATH[] = L"__RELPATH";

bool SameName(const std::wstring& left, const std::wstring& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](wchar_t a, wchar_t b) { return std::towlower(a) == std::towlower(b); });
}

std::wstring Text(const wchar_t* text) {
    return text != nullptr ? text : L"(null)";
}

std::wstring Number(long number) {
    return std::to_wstring(number);
}

std::wstring Flags(long flags, bool plain = true) {
    return (flags != 0 ? L" flags=" + Number(flags) : L"") + (plain ? L"" : L" with more");
}

std::wstring InstanceKey(const std::wstring& className, const std::wstring& id) {
    return className + L"." + KEY + L"=\"" + id + L"\"";
}

bool Fits(CIMTYPE type, const VARIANT& value) {
    if (value.vt == VT_NULL) return true;
    switch (type) {
        case CIM_STRING:
            return value.vt == VT_BSTR;
        case CIM_DATETIME:
            return value.vt == VT_BSTR && SysStringLen(value.bstrVal) == 25;
        case CIM_BOOLEAN:
            return value.vt == VT_BOOL;
        case CIM_REAL32:
            return value.vt == VT_R4;
        case CIM_REAL64:
            return value.vt == VT_R8;
        case CIM_OBJECT:
            return value.vt == VT_UNKNOWN;
        case CIM_SINT32:
        case CIM_UINT32:
            return value.vt == VT_I4;
        default:
            return value.vt == (VT_ARRAY | VT_BSTR) && type == (CIM_STRING | CIM_FLAG_ARRAY);
    }
}

}  // namespace

_variant_t Property::Null() {
    _variant_t null;
    null.vt = VT_NULL;
    return null;
}

Property* Content::Find(const std::wstring& name) {
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [&](const Property& property) { return SameName(property.name, name); });
    return found != properties.end() ? &*found : nullptr;
}

class FakeClassObject final : public RefusingClassObject {
 public:
    FakeClassObject(FakeService& service, Content content)
        : RefusingClassObject(service.m_Live), m_Service(service), m_Content(std::move(content)) {}

    const Content& GetContent() const { return m_Content; }

    HRESULT Get(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE* pType, long* plFlavor) override {
        const SparedAllocations spared;
        const HRESULT failure = m_Service.Enter(L"Get " + Text(wszName) + Flags(lFlags));
        if (failure != S_OK) return failure;
        Property* const property = m_Content.Find(wszName);
        if (property == nullptr) return WBEM_E_NOT_FOUND;
        return HandOut(*property, pVal, pType, plFlavor);
    }

    HRESULT Put(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE Type) override {
        const SparedAllocations spared;
        const HRESULT failure =
            m_Service.Enter(L"Put " + Text(wszName) + L" " + Number(pVal->vt) + Flags(lFlags, Type == 0));
        if (failure != S_OK) return failure;
        Property* const property = m_Content.Find(wszName);
        if (property == nullptr) return WBEM_E_NOT_FOUND;
        if (!Fits(property->type, *pVal)) return WBEM_E_TYPE_MISMATCH;
        property->value = *pVal;
        return WBEM_S_NO_ERROR;
    }

    HRESULT BeginEnumeration(long lEnumFlags) override {
        const SparedAllocations spared;
        const HRESULT failure = m_Service.Enter(L"BeginEnumeration " + Number(lEnumFlags));
        if (failure != S_OK) return failure;
        if (m_Position != NOT_BEGUN) return WBEM_E_UNEXPECTED;
        m_Position = 0;
        m_WithoutSystem = (lEnumFlags & WBEM_FLAG_NONSYSTEM_ONLY) != 0;
        return WBEM_S_NO_ERROR;
    }

    HRESULT Next(long lFlags, BSTR* strName, VARIANT* pVal, CIMTYPE* pType, long* plFlavor) override {
        const SparedAllocations spared;
        const HRESULT failure =
            m_Service.Enter((pType != nullptr ? L"Next with type" : L"Next") + Flags(lFlags));
        if (failure != S_OK) return failure;
        if (m_Position == NOT_BEGUN) return WBEM_E_UNEXPECTED;
        while (m_Position < m_Content.properties.size()) {
            const Property& property = m_Content.properties[m_Position++];
            if (m_WithoutSystem && property.name.rfind(L"__", 0) == 0) continue;
            *strName = SysAllocString(property.name.c_str());
            return HandOut(property, pVal, pType, plFlavor);
        }
        return WBEM_S_NO_MORE_DATA;
    }

    HRESULT EndEnumeration() override {
        const SparedAllocations spared;
        const HRESULT failure = m_Service.Enter(L"EndEnumeration");
        m_Position = NOT_BEGUN;
        return failure;
    }

    HRESULT SpawnInstance(long lFlags, IWbemClassObject** ppNewInstance) override {
        const SparedAllocations spared;
        const HRESULT failure = m_Service.Enter(L"SpawnInstance" + Flags(lFlags));
        if (failure != S_OK) return failure;
        if (!m_Content.isClass) return WBEM_E_INVALID_OBJECT;
        Content instance = m_Content;
        instance.isClass = false;
        *ppNewInstance = m_Service.MakeObject(instance);
        return WBEM_S_NO_ERROR;
    }

 private:
    static constexpr std::size_t NOT_BEGUN = static_cast<std::size_t>(-1);

    static HRESULT HandOut(const Property& property, VARIANT* value, CIMTYPE* type, long* flavor) {
        if (type != nullptr) *type = property.type;
        if (flavor != nullptr) *flavor = 0;
        VariantInit(value);
        return VariantCopy(value, &property.value);
    }

    FakeService& m_Service;
    Content m_Content;
    std::size_t m_Position = NOT_BEGUN;
    bool m_WithoutSystem = false;
};

class FakeEnumerator final : public RefusingEnumerator {
 public:
    FakeEnumerator(FakeService& service, std::vector<EnumerationStep> steps)
        : RefusingEnumerator(service.m_Live), m_Service(service), m_Steps(std::move(steps)) {}

    HRESULT Next(long lTimeout, ULONG uCount, IWbemClassObject** apObjects, ULONG* puReturned) override {
        const SparedAllocations spared;
        *puReturned = 0;
        const HRESULT failure =
            m_Service.Enter(L"NextObject " + Number(lTimeout) + L" " + Number(static_cast<long>(uCount)));
        if (failure != S_OK) return failure;
        if (m_Position == m_Steps.size()) return WBEM_S_FALSE;
        const EnumerationStep& step = m_Steps[m_Position++];
        if (step.status != WBEM_S_NO_ERROR) return step.status;
        *apObjects = m_Service.MakeObject(step.object);
        *puReturned = 1;
        return WBEM_S_NO_ERROR;
    }

 private:
    FakeService& m_Service;
    std::vector<EnumerationStep> m_Steps;
    std::size_t m_Position = 0;
};

class FakeServices final : public RefusingServices<IClientSecurity> {
 public:
    explicit FakeServices(FakeService& service)
        : RefusingServices<IClientSecurity>(service.m_Live), m_Service(service) {}

    HRESULT GetObject(const BSTR strObjectPath, long lFlags, IWbemContext* pCtx, IWbemClassObject** ppObject,
                      IWbemCallResult** ppCallResult) override {
        const SparedAllocations spared;
        *ppObject = nullptr;
        const bool plain = pCtx == nullptr && ppCallResult == nullptr;
        const HRESULT failure = m_Service.Enter(L"GetObject " + Text(strObjectPath) + Flags(lFlags, plain));
        return failure != S_OK ? failure : m_Service.GetObject(Text(strObjectPath), ppObject);
    }

    HRESULT CreateInstanceEnum(const BSTR strFilter, long lFlags, IWbemContext* pCtx,
                               IEnumWbemClassObject** ppEnum) override {
        const SparedAllocations spared;
        *ppEnum = nullptr;
        const HRESULT failure =
            m_Service.Enter(L"CreateInstanceEnum " + Text(strFilter) + Flags(lFlags, pCtx == nullptr));
        return failure != S_OK ? failure : m_Service.CreateInstanceEnum(Text(strFilter), ppEnum);
    }

    HRESULT PutInstance(IWbemClassObject* pInst, long lFlags, IWbemContext* pCtx,
                        IWbemCallResult** ppCallResult) override {
        const SparedAllocations spared;
        const bool plain = pCtx == nullptr && ppCallResult == nullptr;
        const HRESULT failure = m_Service.Enter(L"PutInstance" + Flags(lFlags, plain));
        if (failure != S_OK) return failure;
        return m_Service.PutInstance(static_cast<FakeClassObject*>(pInst)->GetContent(), lFlags);
    }

    HRESULT DeleteInstance(const BSTR strObjectPath, long lFlags, IWbemContext*, IWbemCallResult**) override {
        const SparedAllocations spared;
        const HRESULT failure = m_Service.Enter(L"DeleteInstance " + Text(strObjectPath) + Flags(lFlags));
        return failure != S_OK ? failure : m_Service.DeleteInstance(Text(strObjectPath));
    }

    HRESULT ExecNotificationQueryAsync(const BSTR strQueryLanguage, const BSTR strQuery, long lFlags,
                                       IWbemContext* pCtx, IWbemObjectSink* pResponseHandler) override {
        const SparedAllocations spared;
        const HRESULT failure = m_Service.Enter(L"ExecNotificationQueryAsync " + Text(strQueryLanguage) +
                                                L" " + Text(strQuery) + Flags(lFlags, pCtx == nullptr));
        return failure != S_OK ? failure : m_Service.Subscribe(pResponseHandler);
    }

    HRESULT CancelAsyncCall(IWbemObjectSink* pSink) override {
        const SparedAllocations spared;
        const HRESULT failure = m_Service.Enter(L"CancelAsyncCall");
        return failure != S_OK ? failure : m_Service.Cancel(pSink);
    }

    HRESULT QueryBlanket(IUnknown*, DWORD*, DWORD*, OLECHAR**, DWORD*, DWORD*, void**, DWORD*) override {
        return E_NOTIMPL;
    }

    HRESULT SetBlanket(IUnknown*, DWORD dwAuthnSvc, DWORD dwAuthzSvc, OLECHAR* pServerPrincName,
                       DWORD dwAuthnLevel, DWORD dwImpLevel, void* pAuthInfo, DWORD dwCapabilities) override {
        const SparedAllocations spared;
        const auto& identity = *static_cast<const COAUTHIDENTITY*>(pAuthInfo);
        const auto text = [](const OLECHAR* units, ULONG length) {
            return units != nullptr ? std::wstring(units, length) : std::wstring();
        };
        m_Service.AddBlanket(
            {dwAuthnSvc, dwAuthzSvc, dwAuthnLevel, dwImpLevel, dwCapabilities, pServerPrincName != nullptr,
             identity.User != nullptr, identity.Domain != nullptr, identity.Password != nullptr,
             text(identity.User, identity.UserLength), text(identity.Domain, identity.DomainLength),
             text(identity.Password, identity.PasswordLength), identity.Flags});
        const HRESULT failure = m_Service.Enter(L"SetBlanket");
        return failure != S_OK ? failure : m_Service.blanketResult.load();
    }

    HRESULT CopyProxy(IUnknown*, IUnknown**) override { return E_NOTIMPL; }

 private:
    FakeService& m_Service;
};

class FakeLocator final : public ComObject<IWbemLocator> {
 public:
    explicit FakeLocator(FakeService& service) : ComObject(service.m_Live), m_Service(service) {}

    HRESULT ConnectServer(const BSTR strNetworkResource, const BSTR strUser, const BSTR strPassword,
                          const BSTR strLocale, long lSecurityFlags, const BSTR strAuthority,
                          IWbemContext* pCtx, IWbemServices** ppNamespace) override {
        const SparedAllocations spared;
        const bool plain = strUser == nullptr && strPassword == nullptr && strLocale == nullptr &&
                           lSecurityFlags == 0 && strAuthority == nullptr && pCtx == nullptr;
        const HRESULT failure =
            m_Service.Enter(L"ConnectServer " + Text(strNetworkResource) + (plain ? L"" : L" with more"));
        if (failure != S_OK) return failure;
        std::this_thread::sleep_for(m_Service.connectTime.load());
        if (m_Service.connectResult != S_OK) return m_Service.connectResult;
        *ppNamespace = new FakeServices(m_Service);
        (*ppNamespace)->AddRef();
        return WBEM_S_NO_ERROR;
    }

 private:
    FakeService& m_Service;
};

class FakeFactory final : public ComObject<IClassFactory> {
 public:
    explicit FakeFactory(FakeService& service) : ComObject(service.m_Live), m_Service(service) {}

    HRESULT CreateInstance(IUnknown*, REFIID riid, void** ppvObject) override {
        const SparedAllocations spared;
        *ppvObject = nullptr;
        if (const HRESULT failure = m_Service.Enter(L"CreateLocator"); failure != S_OK) return failure;
        if (m_Service.locatorResult != S_OK) return m_Service.locatorResult;
        const CComPtr<IWbemLocator> locator(new FakeLocator(m_Service));
        return locator->QueryInterface(riid, ppvObject);
    }

    HRESULT LockServer(BOOL) override { return S_OK; }

 private:
    FakeService& m_Service;
};

FakeService::FakeService() {
    const CComPtr<IClassFactory> factory(new FakeFactory(*this));
    if (CoRegisterClassObject(CLSID_WbemLocator, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                              &m_Cookie) != S_OK)
        throw std::bad_alloc();
}

FakeService::~FakeService() {
    CoRevokeClassObject(m_Cookie);
}

void FakeService::AddClass(const std::wstring& name, std::vector<Property> properties) {
    properties.insert(properties.begin(),
                      {{L"__CLASS", CIM_STRING, _variant_t(name.c_str())}, {PATH, CIM_STRING}});
    m_Contents[name] = {name, true, std::move(properties)};
}

void FakeService::AddInstance(const std::wstring& className, const std::wstring& id,
                              const std::vector<Assignment>& values) {
    Content instance = m_Contents.at(className);
    instance.isClass = false;
    instance.Find(KEY)->value = _variant_t(id.c_str());
    instance.Find(PATH)->value = _variant_t(InstanceKey(className, id).c_str());
    for (const Assignment& assignment : values)
        instance.Find(assignment.name)->value = assignment.value;
    m_Contents[InstanceKey(className, id)] = std::move(instance);
}

_variant_t FakeService::Stored(const std::wstring& className, const std::wstring& id,
                               const std::wstring& property) {
    const auto found = m_Contents.find(InstanceKey(className, id));
    if (found == m_Contents.end()) return {};
    const Property* const stored = found->second.Find(property);
    return stored != nullptr ? stored->value : _variant_t();
}

bool FakeService::HasInstance(const std::wstring& className, const std::wstring& id) {
    return m_Contents.count(InstanceKey(className, id)) != 0;
}

IWbemClassObject* FakeService::MakeObject(const Content& content) {
    auto* const object = new FakeClassObject(*this, content);
    object->AddRef();
    return object;
}

void FakeService::ScriptEnumeration(std::vector<EnumerationStep> steps) {
    m_Script = std::move(steps);
    m_HasScript = true;
}

std::vector<CComPtr<IWbemObjectSink>> FakeService::Sinks() {
    const std::lock_guard lock(m_Mutex);
    return m_Sinks;
}

void FakeService::FailAt(int number, HRESULT result) {
    m_UntilFailure = number;
    m_Failure = result;
    m_HasFailed = false;
}

std::vector<std::wstring> FakeService::TakeRequests() {
    const std::lock_guard lock(m_Mutex);
    return std::exchange(m_Requests, {});
}

std::vector<Blanket> FakeService::Blankets() {
    const std::lock_guard lock(m_Mutex);
    return m_Blankets;
}

void FakeService::Forget() {
    const std::lock_guard lock(m_Mutex);
    std::exchange(m_Requests, {});
    std::exchange(m_Blankets, {});
}

HRESULT FakeService::Enter(const std::wstring& request) {
    const std::lock_guard lock(m_Mutex);
    m_Requests.push_back(request);
    if (m_UntilFailure == 0 || --m_UntilFailure != 0) return S_OK;
    m_HasFailed = true;
    return m_Failure;
}

HRESULT FakeService::GetObject(const std::wstring& path, IWbemClassObject** object) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Contents.find(path);
    if (found == m_Contents.end()) return WBEM_E_NOT_FOUND;
    *object = MakeObject(found->second);
    return WBEM_S_NO_ERROR;
}

HRESULT FakeService::CreateInstanceEnum(const std::wstring& className, IEnumWbemClassObject** enumerator) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Contents.find(className);
    if (found == m_Contents.end() || !found->second.isClass) return WBEM_E_INVALID_CLASS;
    std::vector<EnumerationStep> steps = std::exchange(m_Script, {});
    if (!std::exchange(m_HasScript, false)) {
        for (const auto& [path, content] : m_Contents)
            if (!content.isClass && content.className == className)
                steps.push_back({WBEM_S_NO_ERROR, content});
    }
    *enumerator = new FakeEnumerator(*this, std::move(steps));
    (*enumerator)->AddRef();
    return WBEM_S_NO_ERROR;
}

HRESULT FakeService::PutInstance(const Content& content, long flags) {
    const std::lock_guard lock(m_Mutex);
    if (content.isClass) return WBEM_E_INVALID_OBJECT;
    Content instance = content;
    const _variant_t& id = instance.Find(KEY)->value;
    if (id.vt != VT_BSTR) return WBEM_E_ILLEGAL_NULL;
    const std::wstring path = InstanceKey(instance.className, id.bstrVal);
    if (flags == WBEM_FLAG_UPDATE_ONLY && m_Contents.count(path) == 0) return WBEM_E_NOT_FOUND;
    if (flags == WBEM_FLAG_CREATE_ONLY && m_Contents.count(path) != 0) return WBEM_E_ALREADY_EXISTS;
    m_Contents[path] = std::move(instance);
    return WBEM_S_NO_ERROR;
}

HRESULT FakeService::DeleteInstance(const std::wstring& path) {
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Contents.find(path);
    if (found == m_Contents.end()) return WBEM_E_NOT_FOUND;
    if (found->second.isClass) return WBEM_E_INVALID_PARAMETER;
    m_Contents.erase(found);
    return WBEM_S_NO_ERROR;
}

HRESULT FakeService::Subscribe(IWbemObjectSink* sink) {
    const std::lock_guard lock(m_Mutex);
    m_Sinks.emplace_back(sink);
    return WBEM_S_NO_ERROR;
}

HRESULT FakeService::Cancel(IWbemObjectSink* sink) {
    CComPtr<IWbemObjectSink> cancelled;
    {
        const std::lock_guard lock(m_Mutex);
        const auto found = std::find(m_Sinks.begin(), m_Sinks.end(), sink);
        if (found == m_Sinks.end()) return WBEM_E_NOT_FOUND;
        cancelled = *found;
        m_Sinks.erase(found);
    }
    return cancelled->SetStatus(WBEM_STATUS_COMPLETE, WBEM_E_CALL_CANCELLED, nullptr, nullptr);
}

void FakeService::AddBlanket(const Blanket& blanket) {
    const std::lock_guard lock(m_Mutex);
    m_Blankets.push_back(blanket);
}

}  // namespace doubles
