// What the object model does with the service's class objects. Internal to the library.
//
//   if (const CComPtr<IWbemClassObject> object = class_object::Of(m_WMIObject))
//       class_object::PutValue(*object, L"KeepDays", value);
//
// The functions are stateless; an object must not be used by two threads at once.
#pragma once

#include <string>

#include <atlbase.h>
#include <comutil.h>
#include <wbemidl.h>

namespace class_object {

// The class object that `held` carries, or null: when it is not a VT_UNKNOWN, or its interface is none.
CComPtr<IWbemClassObject> Of(const VARIANT& held);

// False for VT_EMPTY, VT_NULL and VT_ERROR values: they are never written to the service.
bool IsWritten(const VARIANT& value) noexcept;

// Writes `value` in the form that the service takes: VT_INT as VT_I4, VT_DATE as date-and-time text (or as a
// date where it has no such text), anything else as it is. `value` is not changed. Returns the service's
// status; throws _com_error when the text cannot be allocated.
HRESULT PutValue(IWbemClassObject& object, const wchar_t* name, const VARIANT& value);

// Turns the date-and-time text of a property of type CIM_DATETIME into the date (VT_DATE) that it tells. Any
// other value stays, and so does a text that is no date, an interval for instance.
void ConvertDateTime(CIMTYPE type, VARIANT& value);

// Makes an instance of the class in memory. The status of the request that failed, else that of
// SpawnInstance. `instance` must be null, and may still be null after a success. Throws _com_error when
// `className` cannot be allocated.
HRESULT Spawn(IWbemServices& services, const std::wstring& className, CComPtr<IWbemClassObject>& instance);

// Lists an object's properties without the system's (the names that begin with two underscores). The
// enumeration is ended in every case, so the object can be enumerated again.
//
//   Properties properties(*object);
//   while (properties.Next()) Store(properties.Name(), properties.Value());
class Properties {
 public:
    // `object` must outlive the list.
    explicit Properties(IWbemClassObject& object);
    ~Properties();

    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;

    // False when the service refused to enumerate; Next must not be called then.
    bool HasBegun() const noexcept { return m_HasBegun; }

    // False at the end of the list and when the service fails. The service is asked for the property's type
    // where `type` is not null.
    bool Next(CIMTYPE* type = nullptr);

    // The current property. The value may be taken over.
    std::wstring Name() const { return {m_Name, m_Name.Length()}; }
    VARIANT& Value() noexcept { return m_Value; }

 private:
    IWbemClassObject& m_Object;
    const bool m_HasBegun;
    CComBSTR m_Name;
    _variant_t m_Value;
};

}  // namespace class_object
