#include "utility/management/util_MgmtObject.h"

#include <cwchar>
#include <string_view>
#include <utility>

#include "utility/management/util_MgmtClassObject.h"
#include "utility/management/util_MgmtInstancePath.h"

namespace {

const wchar_t* TextOrEmpty(const wchar_t* text) noexcept {
    return text != nullptr ? text : L"";
}

bool IsText(const _variant_t* value) noexcept {
    return value != nullptr && value->vt == VT_BSTR;
}

// Moves `rest` behind the next text in double quotation marks and returns that text, if there is one.
std::optional<std::wstring_view> NextQuoted(std::wstring_view& rest) {
    const std::size_t open = rest.find(L'"');
    if (open == std::wstring_view::npos) return std::nullopt;
    const std::size_t close = rest.find(L'"', open + 1);
    if (close == std::wstring_view::npos) return std::nullopt;

    const std::wstring_view quoted = rest.substr(open + 1, close - open - 1);
    rest.remove_prefix(close + 1);
    return quoted;
}

}  // namespace

CMgmtObject::CMgmtObject() : m_Scope(CMgmtScope::GetDefaultMgmtScope()) {}

CMgmtObject::CMgmtObject(const wchar_t* categoryId, const wchar_t* instanceId,
                         const wchar_t* virtualServerName)
    : m_CategoryID(TextOrEmpty(categoryId)),
      m_InstanceID(TextOrEmpty(instanceId)),
      m_VirtualServerName(TextOrEmpty(virtualServerName)),
      m_Scope(CMgmtScope::GetDefaultMgmtScope()) {}

CMgmtObject::CMgmtObject(const wchar_t* objectPath)
    : m_Scope(CMgmtScope::GetDefaultMgmtScope()), m_ObjectPath(objectPath), m_UseObjectPath(true) {}

CMgmtObject::CMgmtObject(const _variant_t* reference) : CMgmtObject() {
    if (!IsText(reference)) return;
    if (_ParseReference(TextOrEmpty(reference->bstrVal))) PopulateObjectReferenceProperties(reference);
}

CMgmtObject::CMgmtObject(const CMgmtScope& scope, const wchar_t* categoryId, const wchar_t* instanceId)
    : m_CategoryID(TextOrEmpty(categoryId)), m_InstanceID(TextOrEmpty(instanceId)), m_Scope(scope) {}

CMgmtObject::CMgmtObject(const CMgmtScope& scope, _bstr_t&& objectPath)
    : m_Scope(scope), m_ObjectPath(std::move(objectPath)), m_UseObjectPath(true) {}

CMgmtObject::CMgmtObject(const CMgmtObject& other) = default;

CMgmtObject::~CMgmtObject() = default;

bool CMgmtObject::Get() {
    const CComPtr<IWbemClassObject> object =
        m_WMIObject.vt == VT_UNKNOWN ? class_object::Of(m_WMIObject) : _FetchForGet();
    if (object == nullptr || !_ReadProperties(*object)) return false;

    _Hold(object);
    return true;
}

bool CMgmtObject::Put(bool createIfMissing) {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    if (services == nullptr) return false;

    const bool throughHeldObject = m_WMIObject.vt == VT_UNKNOWN && !m_RefetchOnPut;
    const CComPtr<IWbemClassObject> object =
        throughHeldObject ? class_object::Of(m_WMIObject) : _FetchForPut(*services, createIfMissing);
    if (object == nullptr) return false;

    // The status of the last request. None was made yet for a held object: with nothing to write into it,
    // nothing is stored and that is a failure.
    HRESULT status = throughHeldObject ? WBEM_E_FAILED : WBEM_S_NO_ERROR;
    for (const auto& [name, record] : *m_PropertyMap) {
        const _variant_t& value = *record->GetValue();
        if (!class_object::IsWritten(value)) continue;
        status = class_object::PutValue(*object, name.c_str(), value);
        if (status != WBEM_S_NO_ERROR) return false;
    }
    if (status != WBEM_S_NO_ERROR) return false;

    const long flags = createIfMissing ? WBEM_FLAG_CREATE_OR_UPDATE : WBEM_FLAG_UPDATE_ONLY;
    return services->PutInstance(object, flags, nullptr, nullptr) == WBEM_S_NO_ERROR;
}

bool CMgmtObject::DeleteInstance() {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    if (services == nullptr) return false;

    const _bstr_t path = InstancePath(m_CategoryID, m_InstanceID).ToBstr();
    return services->DeleteInstance(path, 0, nullptr, nullptr) == WBEM_S_NO_ERROR;
}

bool CMgmtObject::SetCategoryID(const std::wstring& categoryId) {
    m_CategoryID = categoryId;
    return true;
}

bool CMgmtObject::SetInstanceID(const std::wstring& instanceId) {
    m_InstanceID = instanceId;
    return true;
}

bool CMgmtObject::SetVirtualServerName(const std::wstring& virtualServerName) {
    m_VirtualServerName = virtualServerName;
    return true;
}

const wchar_t* CMgmtObject::GetCategoryID() {
    return m_CategoryID.c_str();
}

const wchar_t* CMgmtObject::GetInstanceId() {
    return m_InstanceID.c_str();
}

void CMgmtObject::SetScope(CMgmtScope& scope, bool refetchOnPut) {
    m_Scope = scope;
    m_RefetchOnPut = refetchOnPut;
}

_bstr_t CMgmtObject::MakeReferenceObjectPath(const wchar_t* className, const wchar_t* instanceId) {
    std::wstring path(TextOrEmpty(className));
    path.append(L".INSTANCE_ID=\"").append(TextOrEmpty(instanceId)).append(L"\"");
    return path.c_str();
}

bool CMgmtObject::PopulateObjectReferenceProperties(const _variant_t* reference) {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    if (services == nullptr || !IsText(reference)) return false;

    CComPtr<IWbemClassObject> object;
    const HRESULT status = services->GetObject(reference->bstrVal, 0, nullptr, &object, nullptr);
    if (status != WBEM_S_NO_ERROR || object == nullptr) return false;

    class_object::Properties properties(*object);
    if (!properties.HasBegun()) return true;
    while (properties.Next())
        _TakeProperty(properties.Name(), properties.Value());
    _Hold(object);
    return true;
}

bool CMgmtObject::_ParseReference(const wchar_t* reference) {
    constexpr std::size_t MOST_UNITS = 255;
    std::wstring_view rest(reference, wcsnlen(reference, MOST_UNITS));

    const std::size_t stop = rest.find(L'.');
    if (stop == std::wstring_view::npos) return false;
    m_CategoryID = rest.substr(0, stop);
    rest.remove_prefix(stop + 1);

    const std::optional<std::wstring_view> instanceId = NextQuoted(rest);
    if (!instanceId) return false;
    m_InstanceID = *instanceId;

    if (const std::optional<std::wstring_view> serverName = NextQuoted(rest))
        m_VirtualServerName = *serverName;
    return true;
}

std::optional<_bstr_t> CMgmtObject::_ObjectPath() const {
    if (m_UseObjectPath) return m_ObjectPath;
    if (m_CategoryID.empty() || m_InstanceID.empty()) return std::nullopt;
    return InstancePath(m_CategoryID, m_InstanceID).ToBstr();
}

CComPtr<IWbemClassObject> CMgmtObject::_FetchForGet() {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    if (services == nullptr) return nullptr;

    std::optional<_bstr_t> path = _ObjectPath();
    if (!path && !m_CategoryID.empty()) path = _bstr_t(m_CategoryID.c_str());
    if (!path) return nullptr;

    // An object is what counts here, not whether the status is one of plain success.
    CComPtr<IWbemClassObject> object;
    services->GetObject(*path, 0, nullptr, &object, nullptr);
    return object;
}

CComPtr<IWbemClassObject> CMgmtObject::_FetchForPut(IWbemServices& services, bool createIfMissing) const {
    const std::optional<_bstr_t> path = _ObjectPath();
    if (!path) return nullptr;

    CComPtr<IWbemClassObject> object;
    const HRESULT status = services.GetObject(*path, 0, nullptr, &object, nullptr);
    if (status == WBEM_S_NO_ERROR) return object;
    if (!createIfMissing) return nullptr;

    CComPtr<IWbemClassObject> instance;
    if (class_object::Spawn(services, m_CategoryID, instance) != WBEM_S_NO_ERROR) return nullptr;
    return instance;
}
