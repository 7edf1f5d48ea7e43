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

void ConvertDateTime(CIMTYPE type, VARIANT& value) {
    double date = 0;
    if (type != CIM_DATETIME || value.vt != VT_BSTR) return;
    if (!CMgmtObjectBase::DATETIME2Date(value.bstrVal, &date)) return;
    VariantClear(&value);
    value.vt = VT_DATE;
    value.date = date;
}

HRESULT Spawn(IWbemServices& services, const std::wstring& className, CComPtr<IWbemClassObject>& instance) {
    CComPtr<IWbemClassObject> classObject;
    const HRESULT status = services.GetObject(_bstr_t(className.c_str()), 0, nullptr, &classObject, nullptr);
    if (FAILED(status)) return status;
    return classObject != nullptr ? classObject->SpawnInstance(0, &instance) : WBEM_E_FAILED;
}

Properties::Properties(IWbemClassObject& object)
    : m_Object(object), m_HasBegun(object.BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY) == WBEM_S_NO_ERROR) {}

Properties::~Properties() {
    if (m_HasBegun) m_Object.EndEnumeration();
}

bool Properties::Next(CIMTYPE* type) {
    m_Name.Empty();
    m_Value.Clear();
    long flavor = 0;
    return m_Object.Next(0, &m_Name, &m_Value, type, &flavor) == WBEM_S_NO_ERROR;
}

}  // namespace class_object
