#include "utility/management/util_MgmtObjectBase.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

#include <oleauto.h>

#include "utility/management/util_MgmtClassObject.h"
#include "utility/management/util_MgmtDateTimeText.h"

namespace {

// What the copies of a bag share. The map comes first, as the base, so that the whole is found again through
// m_PropertyMap. The view lies here rather than in one of the copies: all of them hand out the same one, and
// asking for it allocates nothing.
struct SharedParts final : std::map<std::wstring, CMgmtPropertyData*> {
    SharedParts() = default;
    SharedParts(const SharedParts&) = delete;
    SharedParts& operator=(const SharedParts&) = delete;

    ~SharedParts() {
        for (const auto& [name, record] : *this)
            delete record;
    }

    CMgmtPropertyDataCollection view{this};
    std::int32_t refCount = 1;
};

}  // namespace

CMgmtObjectBase::CMgmtObjectBase() {
    auto* const parts = new SharedParts;
    m_PropertyMap = parts;
    m_Properties = &parts->view;
    m_RefCount = &parts->refCount;
}

CMgmtObjectBase::CMgmtObjectBase(const _variant_t* object, bool populate) : CMgmtObjectBase() {
    if (object == nullptr) return;
    if (populate && object->vt == VT_UNKNOWN) {
        PopulateObjectProperties(object);
        return;
    }
    m_WMIObject = *object;
}

CMgmtObjectBase::CMgmtObjectBase(const CMgmtObjectBase& other)
    : m_PropertyMap(other.m_PropertyMap),
      m_Properties(other.m_Properties),
      m_WMIObject(other.m_WMIObject),
      m_RefCount(other.m_RefCount) {
    // Last: a held value that cannot be copied must leave the count as it was.
    std::atomic_ref(*m_RefCount).fetch_add(1, std::memory_order_relaxed);
}

CMgmtObjectBase::~CMgmtObjectBase() {
    if (std::atomic_ref(*m_RefCount).fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete static_cast<SharedParts*>(m_PropertyMap);
}

const _variant_t* CMgmtObjectBase::GetPropertyValue(const std::wstring& name) const {
    if (const _variant_t* const value = _FindValue(name)) return value;
    return _FetchValue(std::wstring(name));
}

const _variant_t* CMgmtObjectBase::GetPropertyValue(const wchar_t* name) const {
    std::wstring key(name);
    if (const _variant_t* const value = _FindValue(key)) return value;
    return _FetchValue(std::move(key));
}

const _variant_t* CMgmtObjectBase::_FindValue(const std::wstring& name) const {
    const auto found = m_PropertyMap->find(name);
    return found != m_PropertyMap->end() ? found->second->GetValue() : nullptr;
}

const _variant_t* CMgmtObjectBase::_FetchValue(std::wstring&& name) const {
    const CComPtr<IWbemClassObject> object = class_object::Of(m_WMIObject);
    if (object == nullptr) return nullptr;

    _variant_t value;
    CIMTYPE type = CIM_EMPTY;
    object->Get(name.c_str(), 0, &value, &type, nullptr);
    class_object::ConvertDateTime(type, value);
    return _Store(std::move(name), value);
}

// The new record stands before the old one is given up, so a failure changes nothing, and a value may be set
// to what the bag itself handed out.
const _variant_t* CMgmtObjectBase::_Store(std::wstring&& name, VARIANT& value) const {
    return _Store(m_PropertyMap->lower_bound(name), std::move(name), value)->second->GetValue();
}

CMgmtObjectBase::Place CMgmtObjectBase::_Store(Place hint, std::wstring&& name, VARIANT& value) const {
    std::unique_ptr<CMgmtPropertyData> record(
        new CMgmtPropertyData(CMgmtPropertyData::TakeOver{}, std::move(name), value));
    const Place place = m_PropertyMap->try_emplace(hint, *record->GetName(), nullptr);
    record.reset(std::exchange(place->second, record.release()));
    return place;
}

void CMgmtObjectBase::_TakeProperty(std::wstring&& name, VARIANT& value) {
    if (const CComPtr<IWbemClassObject> object = class_object::Of(m_WMIObject))
        if (class_object::IsWritten(value)) class_object::PutValue(*object, name.c_str(), value);
    _Store(std::move(name), value);
}

void CMgmtObjectBase::SetPropertyValue(const std::wstring& name, const _variant_t& value) {
    _variant_t copy(value);
    _TakeProperty(std::wstring(name), copy);
}

void CMgmtObjectBase::SetPropertyValue(const wchar_t* name, const _variant_t& value) {
    _variant_t copy(value);
    _TakeProperty(name, copy);
}

void CMgmtObjectBase::SetPropertyValue(const wchar_t* name, long value) {
    _variant_t variant(value);
    _TakeProperty(name, variant);
}

void CMgmtObjectBase::SetPropertyValue(const wchar_t* name, int value) {
    _variant_t variant(value);
    _TakeProperty(name, variant);
}

void CMgmtObjectBase::SetPropertyValue(const wchar_t* name, float value) {
    _variant_t variant(value);
    _TakeProperty(name, variant);
}

void CMgmtObjectBase::SetPropertyValue(const wchar_t* name, bool value) {
    _variant_t variant(value);
    _TakeProperty(name, variant);
}

void CMgmtObjectBase::SetPropertyValue(const wchar_t* name, const wchar_t* value) {
    _variant_t variant(value);
    _TakeProperty(name, variant);
}

void CMgmtObjectBase::SetPropertyValue(const wchar_t* name, SYSTEMTIME* value) {
    if (value == nullptr) return;
    SetPropertyValue(name, date_time_text::Text(*value, 0).CString());
}

void CMgmtObjectBase::SetPropertyValue(const wchar_t* name, FILETIME* value) {
    SYSTEMTIME systemTime = {};
    if (value == nullptr || !FileTimeToSystemTime(value, &systemTime)) return;
    SetPropertyValue(name, &systemTime);
}

CMgmtPropertyDataCollection* CMgmtObjectBase::GetProperties() {
    return m_Properties;
}

CMgmtObjectBase::operator const _variant_t() {
    if (const CComPtr<IWbemClassObject> object = class_object::Of(m_WMIObject)) {
        for (const auto& [name, record] : *m_PropertyMap) {
            const _variant_t& value = *record->GetValue();
            // A date goes as text here too: as a date the service would refuse it, and the object handed out
            // would lack what the bag has.
            if (class_object::IsWritten(value)) class_object::PutValue(*object, name.c_str(), value);
        }
    }
    return m_WMIObject;
}

bool CMgmtObjectBase::PopulateObjectProperties(const _variant_t* object) {
    if (object == nullptr) return false;
    const CComPtr<IWbemClassObject> classObject = class_object::Of(*object);
    if (classObject == nullptr) return false;

    m_WMIObject = *object;
    _ReadProperties(*classObject);
    return true;
}

bool CMgmtObjectBase::_ReadProperties(IWbemClassObject& object, bool datesAsDates) {
    class_object::Properties properties(object);
    if (!properties.HasBegun()) return false;
    // The service lists properties in the order of their names, so each belongs behind the one before: at the
    // end of a map that was empty.
    const bool isNew = m_PropertyMap->empty();
    Place place = m_PropertyMap->begin();
    CIMTYPE type = CIM_EMPTY;
    while (properties.Next(datesAsDates ? &type : nullptr)) {
        if (datesAsDates) class_object::ConvertDateTime(type, properties.Value());
        place = _Store(place, properties.Name(), properties.Value());
        if (isNew) {
            place = m_PropertyMap->end();
        } else {
            ++place;
        }
    }
    return true;
}

void CMgmtObjectBase::_Hold(IWbemClassObject* object) {
    _variant_t held(object);
    m_WMIObject.Attach(held);
}

bool CMgmtObjectBase::DATETIME2Date(const wchar_t* datetime, double* date) {
    SYSTEMTIME systemTime = {};
    if (datetime == nullptr || date == nullptr || !date_time_text::Scan(datetime, systemTime)) return false;

    double converted = 0;
    if (SystemTimeToVariantTime(&systemTime, &converted) != TRUE) return false;
    *date = converted;
    return true;
}

bool CMgmtObjectBase::Date2DATETIME(double date, wchar_t* buffer, unsigned long count) {
    SYSTEMTIME systemTime = {};
    if (buffer == nullptr || VariantTimeToSystemTime(date, &systemTime) != TRUE) return false;

    const date_time_text::Text text(systemTime, systemTime.wMilliseconds);
    if (count == 0) return false;
    // Room for the text without its terminator (a count of 25) is not enough: nobody can tell such a buffer
    // from one that holds a text, so it is reported as too small, and whatever is written is terminated.
    const std::size_t length = text.View().copy(buffer, count - 1);
    buffer[length] = L'\0';
    return length == text.View().size();
}
