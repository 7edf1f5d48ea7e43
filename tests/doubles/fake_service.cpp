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

std::wstring Flags(long flags) {
    return flags != 0 ? L" flags=" + Number(flags) : L"";
}

std::wstring InstanceKey(const std::wstring& className, const std::wstring& id) {
    return className + L"." + KEY + L"=\"" + id + L"\"";
}

// For the types that the tests use.
bool Fits(CIMTYPE type, const VARIANT& value) {
    if (value.vt == VT_NULL) return true;
    if (type == CIM_STRING) return value.vt == VT_BSTR;
    if (type == CIM_DATETIME) return value.vt == VT_BSTR && SysStringLen(value.bstrVal) == 25;
    if (type == CIM_BOOLEAN) return value.vt == VT_BOOL;
    if (type == CIM_REAL32) return value.vt == VT_R4;
    return value.vt == VT_I4;
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
        if (const HRESULT failure = m_Service.Enter(L"Get " + Text(wszName) + Flags(lFlags))) return failure;
        const Property* const property = m_Content.Find(wszName);
        return property != nullptr ? HandOut(*property, pVal, pType, plFlavor) : WBEM_E_NOT_FOUND;
    }

    HRESULT Put(LPCWSTR wszName, long lFlags, VARIANT* pVal, CIMTYPE) override {
        const SparedAllocations spared;
        const std::wstring request = L"Put " + Text(wszName) + L" " + Number(pVal->vt);
        if (const HRESULT failure = m_Service.Enter(request + Flags(lFlags))) return failure;
        Property* const property = m_Content.Find(wszName);
        if (property == nullptr) return WBEM_E_NOT_FOUND;
        if (!Fits(property->type, *pVal)) return WBEM_E_TYPE_MISMATCH;
        property->value = *pVal;
        return WBEM_S_NO_ERROR;
    }

    HRESULT BeginEnumeration(long lEnumFlags) override {
        const SparedAllocations spared;
        if (const HRESULT failure = m_Service.Enter(L"BeginEnumeration " + Number(lEnumFlags)))
            return failure;
        if (m_Position != NOT_BEGUN) return WBEM_E_UNEXPECTED;
        m_Position = 0;
        m_WithoutSystem = (lEnumFlags & WBEM_FLAG_NONSYSTEM_ONLY) != 0;
        return WBEM_S_NO_ERROR;
    }

    HRESULT Next(long lFlags, BSTR* strName, VARIANT* pVal, CIMTYPE* pType, long* plFlavor) override {
        const SparedAllocations spared;
        const std::wstring request = pType != nullptr ? L"Next with type" : L"Next";
        if (const HRESULT failure = m_Service.Enter(request + Flags(lFlags))) return failure;
        if (m_Position == NOT_BEGUN) return WBEM_E_UNEXPECTED;
        while (m_Position < m_Content.properties.size()) {
            const Property& property = m_Content.properties[m_Position++];
            if (m_WithoutSystem && property.name.starts_with(L"__")) continue;
            *strName = SysAllocString(property.name.c_str());
            return HandOut(property, pVal, pType, plFlavor);
        }
        return WBEM_S_NO_MORE_DATA;
    }

    HRESULT EndEnumeration() override {
        const SparedAllocations spared;
        m_Position = NOT_BEGUN;
        return m_Service.Enter(L"EndEnumeration");
    }

    HRESULT SpawnInstance(long lFlags, IWbemClassObject** ppNewInstance) override {
        const SparedAllocations spared;
        if (const HRESULT failure = m_Service.Enter(L"SpawnInstance" + Flags(lFlags))) return failure;
        if (!m_Content.isClass) return WBEM_E_INVALID_OBJECT;
        *ppNewInstance = m_Service.MakeObject({m_Content.className, false, m_Content.properties});
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
        const std::wstring request = L"NextObject " + Number(lTimeout) + L" " + std::to_wstring(uCount);
        if (const HRESULT failure = m_Service.Enter(request)) return failure;
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
    explicit FakeServices(FakeService& service) : RefusingServices(service.m_Live), m_Service(service) {}

    HRESULT GetObject(const BSTR strObjectPath, long lFlags, IWbemContext*, IWbemClassObject** ppObject,
                      IWbemCallResult**) override {
        const SparedAllocations spared;
        *ppObject = nullptr;
        const std::wstring path = Text(strObjectPath);
        if (const HRESULT failure = m_Service.Enter(L"GetObject " + path + Flags(lFlags))) return failure;
        const std::lock_guard lock(m_Service.m_Mutex);
        const auto found = m_Service.m_Contents.find(path);
        if (found == m_Service.m_Contents.end()) return WBEM_E_NOT_FOUND;
        *ppObject = m_Service.MakeObject(found->second);
        return WBEM_S_NO_ERROR;
    }

    HRESULT CreateInstanceEnum(const BSTR strFilter, long lFlags, IWbemContext*,
                               IEnumWbemClassObject** ppEnum) override {
        const SparedAllocations spared;
        *ppEnum = nullptr;
        const std::wstring request = L"CreateInstanceEnum " + Text(strFilter);
        if (const HRESULT failure = m_Service.Enter(request + Flags(lFlags))) return failure;
        const std::lock_guard lock(m_Service.m_Mutex);
        const auto& contents = m_Service.m_Contents;
        const auto found = contents.find(Text(strFilter));
        if (found == contents.end() || !found->second.isClass) return WBEM_E_INVALID_CLASS;
        std::vector<EnumerationStep> steps = std::exchange(m_Service.m_Script, {});
        if (!std::exchange(m_Service.m_HasScript, false)) {
            for (const auto& [path, content] : contents)
                if (!content.isClass && content.className == found->first)
                    steps.push_back({WBEM_S_NO_ERROR, content});
        }
        *ppEnum = new FakeEnumerator(m_Service, std::move(steps));
        (*ppEnum)->AddRef();
        return WBEM_S_NO_ERROR;
    }

    HRESULT PutInstance(IWbemClassObject* pInst, long lFlags, IWbemContext*, IWbemCallResult**) override {
        const SparedAllocations spared;
        if (const HRESULT failure = m_Service.Enter(L"PutInstance" + Flags(lFlags))) return failure;
        Content instance = static_cast<FakeClassObject*>(pInst)->GetContent();
        if (instance.isClass) return WBEM_E_INVALID_OBJECT;
        const _variant_t& id = instance.Find(KEY)->value;
        if (id.vt != VT_BSTR) return WBEM_E_ILLEGAL_NULL;
        const std::wstring path = InstanceKey(instance.className, id.bstrVal);
        const std::lock_guard lock(m_Service.m_Mutex);
        const bool exists = m_Service.m_Contents.contains(path);
        if (lFlags == WBEM_FLAG_UPDATE_ONLY && !exists) return WBEM_E_NOT_FOUND;
        if (lFlags == WBEM_FLAG_CREATE_ONLY && exists) return WBEM_E_ALREADY_EXISTS;
        m_Service.m_Contents[path] = std::move(instance);
        return WBEM_S_NO_ERROR;
    }

    HRESULT DeleteInstance(const BSTR strObjectPath, long lFlags, IWbemContext*, IWbemCallResult**) override {
        const SparedAllocations spared;
        const std::wstring path = Text(strObjectPath);
        if (const HRESULT failure = m_Service.Enter(L"DeleteInstance " + path + Flags(lFlags)))
            return failure;
        const std::lock_guard lock(m_Service.m_Mutex);
        return m_Service.m_Contents.erase(path) != 0 ? WBEM_S_NO_ERROR : WBEM_E_NOT_FOUND;
    }

    HRESULT ExecNotificationQueryAsync(const BSTR strQueryLanguage, const BSTR strQuery, long lFlags,
                                       IWbemContext*, IWbemObjectSink* pResponseHandler) override {
        const SparedAllocations spared;
        const std::wstring query = Text(strQueryLanguage) + L" " + Text(strQuery);
        if (const HRESULT failure = m_Service.Enter(L"ExecNotificationQueryAsync " + query + Flags(lFlags)))
            return failure;
        const std::lock_guard lock(m_Service.m_Mutex);
        m_Service.m_Sinks.emplace_back(pResponseHandler);
        return WBEM_S_NO_ERROR;
    }

    // Tells the sink before it returns.
    HRESULT CancelAsyncCall(IWbemObjectSink* pSink) override {
        const SparedAllocations spared;
        if (const HRESULT failure = m_Service.Enter(L"CancelAsyncCall")) return failure;
        const CComPtr<IWbemObjectSink> cancelled(pSink);
        {
            const std::lock_guard lock(m_Service.m_Mutex);
            if (std::erase(m_Service.m_Sinks, cancelled) == 0) return WBEM_E_NOT_FOUND;
        }
        return cancelled->SetStatus(WBEM_STATUS_COMPLETE, WBEM_E_CALL_CANCELLED, nullptr, nullptr);
    }

    HRESULT SetBlanket(IUnknown*, DWORD dwAuthnSvc, DWORD dwAuthzSvc, OLECHAR* pServerPrincName,
                       DWORD dwAuthnLevel, DWORD dwImpLevel, void* pAuthInfo, DWORD dwCapabilities) override {
        const SparedAllocations spared;
        const auto& identity = *static_cast<const COAUTHIDENTITY*>(pAuthInfo);
        std::wstring blanket;
        for (const DWORD setting :
             {dwAuthnSvc, dwAuthzSvc, dwAuthnLevel, dwImpLevel, dwCapabilities, identity.Flags})
            blanket += std::to_wstring(setting) + L" ";
        const auto text = [](const OLECHAR* units, ULONG length) {
            return units != nullptr ? std::wstring(units, length) : L"(null)";
        };
        blanket += Text(pServerPrincName) + L" " + text(identity.Domain, identity.DomainLength) + L"\\" +
                   text(identity.User, identity.UserLength) + L":" +
                   text(identity.Password, identity.PasswordLength);
        {
            const std::lock_guard lock(m_Service.m_Mutex);
            m_Service.m_Blankets.push_back(blanket);
        }
        const HRESULT failure = m_Service.Enter(L"SetBlanket");
        return failure != S_OK ? failure : m_Service.blanketResult.load();
    }

    HRESULT QueryBlanket(IUnknown*, DWORD*, DWORD*, OLECHAR**, DWORD*, DWORD*, void**, DWORD*) override {
        return REFUSED;
    }
    HRESULT CopyProxy(IUnknown*, IUnknown**) override { return REFUSED; }

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
        const std::wstring request = L"ConnectServer " + Text(strNetworkResource);
        if (const HRESULT failure = m_Service.Enter(request + (plain ? L"" : L" with more"))) return failure;
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
        if (const HRESULT failure = m_Service.Enter(L"CreateLocator")) return failure;
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

std::vector<std::wstring> FakeService::Blankets() {
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

}  // namespace doubles
