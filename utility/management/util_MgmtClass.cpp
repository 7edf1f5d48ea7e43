#include "utility/management/util_MgmtClass.h"

#include <comutil.h>

#include "utility/common/diaglib.h"
#include "utility/management/util_MgmtClassObject.h"
#include "utility/management/util_MgmtModule.h"

namespace {

constexpr wchar_t KEY_NAME[] = L"INSTANCE_ID";

// The enumerator's next object, or null at the end of the list and when the service fails.
CComPtr<IWbemClassObject> NextObject(IEnumWbemClassObject& enumerator) {
    constexpr long TIMEOUT_MILLISECONDS = 30000;
    CComPtr<IWbemClassObject> object;
    HRESULT status = WBEM_S_NO_ERROR;
    do {
        object.Release();
        ULONG count = 0;
        status = enumerator.Next(TIMEOUT_MILLISECONDS, 1, &object, &count);
    } while (status == WBEM_S_TIMEDOUT);
    if (status != WBEM_S_NO_ERROR) return nullptr;
    return object;
}

bool Read(IWbemClassObject& object, const wchar_t* name, _variant_t& value) {
    return object.Get(name, 0, &value, nullptr, nullptr) == WBEM_S_NO_ERROR;
}

const wchar_t* TextOf(const _variant_t& value) noexcept {
    return value.vt == VT_BSTR ? value.bstrVal : nullptr;
}

// The text itself, without a copy.
_bstr_t TakeText(_variant_t& value) {
    if (value.vt != VT_BSTR) return {};
    _bstr_t text(value.bstrVal, false);
    value.vt = VT_EMPTY;
    return text;
}

}  // namespace

CMgmtClass::CMgmtClass() = default;

CMgmtClass::CMgmtClass(const wchar_t* className, bool useInstanceId)
    : CMgmtObject(className, nullptr, nullptr),
      m_InstanceCollection(std::make_unique<CMgmtObjectCollection>(&m_Instances)),
      m_UseInstanceId(useInstanceId) {}

CMgmtClass::CMgmtClass(const CMgmtClass& other)
    : CMgmtObject(other),
      m_InstanceCollection(std::make_unique<CMgmtObjectCollection>(&m_Instances)),
      m_UseInstanceId(other.m_UseInstanceId) {}

CMgmtClass::~CMgmtClass() {
    Reset();
}

CMgmtObjectCollection* CMgmtClass::GetInstances() {
    Reset();
    const CComPtr<IEnumWbemClassObject> enumerator = _EnumerateInstances();
    if (enumerator == nullptr) return m_InstanceCollection.get();

    // Taken once: every listed object gets a handle of it, and the lock is not asked for each of them.
    const CMgmtScope scope = CMgmtScope::GetDefaultMgmtScope();
    while (const CComPtr<IWbemClassObject> object = NextObject(*enumerator)) {
        std::unique_ptr<CMgmtObject> listed = _MakeListed(scope, *object);
        if (listed == nullptr) continue;
        m_Instances.push_back(nullptr);  // may throw; what follows does not
        m_Instances.back() = listed.release();
    }
    return m_InstanceCollection.get();
}

CComPtr<IEnumWbemClassObject> CMgmtClass::_EnumerateInstances() {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    if (services == nullptr) return nullptr;

    CComPtr<IEnumWbemClassObject> enumerator;
    const HRESULT status =
        services->CreateInstanceEnum(_bstr_t(m_CategoryID.c_str()), 0, nullptr, &enumerator);
    if (status == WBEM_S_NO_ERROR) return enumerator;

    DBG::DebugLogEx(LibraryModule(), DBG::LEVEL_FAILURE, L"" __FILE__, __LINE__,
                    L"CreateInstanceEnum() fail. hr=0x%x", static_cast<unsigned int>(status));
    return nullptr;
}

std::unique_ptr<CMgmtObject> CMgmtClass::_MakeListed(const CMgmtScope& scope,
                                                     IWbemClassObject& object) const {
    std::unique_ptr<CMgmtObject> listed;
    if (m_UseInstanceId) {
        _variant_t className;
        _variant_t instanceId;
        if (!Read(object, L"__CLASS", className) || !Read(object, KEY_NAME, instanceId)) return nullptr;
        listed.reset(new CMgmtObject(scope, TextOf(className), TextOf(instanceId)));
    } else {
        _variant_t path;
        if (!Read(object, L"__RELPATH", path)) return nullptr;
        listed.reset(new CMgmtObject(scope, TakeText(path)));
    }
    listed->_ReadProperties(object, m_UseInstanceId);
    return listed;
}

CMgmtObjectBase* CMgmtClass::CreateInstance() {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    const CComPtr<IWbemClassObject> instance = _Spawn(services);
    if (instance == nullptr) return nullptr;

    const _variant_t held(instance);
    return m_CreatedObjects.emplace_back(std::make_unique<CMgmtObjectBase>(&held, false)).get();
}

bool CMgmtClass::CreateInstance(CMgmtObject& source) {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    const CComPtr<IWbemClassObject> instance = _Spawn(services);
    if (instance == nullptr) return false;

    for (const auto& [name, record] : *source.m_PropertyMap) {
        const _variant_t& value = *record->GetValue();
        if (!class_object::IsWritten(value)) continue;
        if (class_object::PutValue(*instance, name.c_str(), value) != WBEM_S_NO_ERROR) return false;
    }

    // Behind the others, so that it replaces an id among them.
    _variant_t id(source.GetInstanceId());
    if (FAILED(instance->Put(KEY_NAME, 0, &id, 0))) return false;
    return services->PutInstance(instance, WBEM_FLAG_CREATE_ONLY, nullptr, nullptr) == WBEM_S_NO_ERROR;
}

CMgmtObjectBase* CMgmtClass::CreateInstance(const wchar_t* instanceId) {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    const CComPtr<IWbemClassObject> instance = _Spawn(services);
    if (instance == nullptr) return nullptr;

    _variant_t id(instanceId);
    if (FAILED(instance->Put(KEY_NAME, 0, &id, 0))) return nullptr;

    // Ready before the instance is stored: what can throw must not leave an instance behind that the caller
    // does not know of.
    const _variant_t held(instance);
    auto created = std::make_unique<CMgmtObjectBase>(&held, false);
    created->SetPropertyValue(KEY_NAME, id);

    const HRESULT status = services->PutInstance(instance, WBEM_FLAG_CREATE_ONLY, nullptr, nullptr);
    return status == WBEM_S_NO_ERROR ? created.release() : nullptr;
}

CComPtr<IWbemClassObject> CMgmtClass::_Spawn(IWbemServices* services) const {
    CComPtr<IWbemClassObject> instance;
    if (services == nullptr || FAILED(class_object::Spawn(*services, m_CategoryID, instance))) return nullptr;
    return instance;
}

bool CMgmtClass::RemoveObject(size_t index) {
    if (index < m_Instances.size())
        m_Instances.erase(m_Instances.begin() + static_cast<std::ptrdiff_t>(index));
    return true;
}

void CMgmtClass::RemoveAllObject() {
    m_Instances.clear();
}

void CMgmtClass::Reset() {
    for (const CMgmtObject* const instance : m_Instances)
        delete instance;
    m_Instances.clear();
}
