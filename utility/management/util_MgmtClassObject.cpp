#include "utility/management/util_MgmtClassObject.h"

#include "utility/management/util_MgmtObjectBase.h"

namespace class_object {

CComPtr<IWbemClassObject> Of(const VARIANT& held) {
    CComPtr<IWbemClassObject> object;
    if (held.vt == VT_UNKNOWN && held.punkVal != nullptr)
        held.punkVal->QueryInterface(IID_IWbemClassObject, reinterpret_cast<void**>(&object));
    return object;
}

bool IsWritten(const VARIANT& value) noexcept {
    return value.vt != VT_EMPTY && value.vt != VT_NULL && value.vt != VT_ERROR;
}

HRESULT PutValue(IWbemClassObject& object, const wchar_t* name, const VARIANT& value) {
    VARIANT written = value;  // borrows what `value` or `text` owns
    _variant_t text;
    if (value.vt == VT_INT) {
        written.vt = VT_I4;
        written.lVal = value.intVal;
    } else if (value.vt == VT_DATE) {
        wchar_t buffer[64];
        if (CMgmtObjectBase::Date2DATETIME(value.date, buffer, std::size(buffer))) {
            text = buffer;
            written = text;
        }
    }
    return object.Put(name, 0, &written, 0);
}

Properties::Properties(IWbemClassObject& object)
    : m_Object(object), m_HasBegun(object.BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY) == WBEM_S_NO_ERROR) {}

Properties::~Properties() {
    if (m_HasBegun) m_Object.EndEnumeration();
}

bool Properties::Next() {
    m_Name.Empty();
    m_Value.Clear();
    long flavor = 0;
    return m_Object.Next(0, &m_Name, &m_Value, nullptr, &flavor) == WBEM_S_NO_ERROR;
}

}  // namespace class_object
