// CMgmtObjectBase is a bag of named property values, optionally bound to a class object of the management
// service (the held object).
//
//   CMgmtObjectBase bag(&embeddedObject, true);
//   const _variant_t* days = bag.GetPropertyValue(L"KeepDays");
//   bag.SetPropertyValue(L"Enabled", true);
//
// Reads come from the bag and, for a name that is not yet in it, from the held object, whose answer is kept.
// Writes go to the bag and at once to the held object. Names are compared exactly: "Name" and "name" are two
// properties of a bag, although they are one to the service.
//
// Copies share one bag; it is freed with the last of them. Copies may be destroyed on different threads;
// every other use of a bag and its copies, GetPropertyValue included, is serialised by the caller.
//
// What the service refuses is not reported here. Memory that cannot be allocated and values that cannot be
// copied raise std::bad_alloc, _com_error or CAtlException; the property concerned then keeps its old record.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <comutil.h>
#include <wbemidl.h>
#include <windows.h>

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtPropertyData.h"
#include "utility/management/util_MgmtPropertyDataCollection.h"

class MGMT_API CMgmtObjectBase {
 public:
    CMgmtObjectBase();

    // With `populate` and a VT_UNKNOWN value, binds the bag to the value's class object and reads all its
    // properties; a value that carries no class object leaves the bag unbound. Otherwise holds a copy of
    // `object`, whatever its type, and reads properties on demand. A null `object` leaves the bag unbound.
    CMgmtObjectBase(const _variant_t* object, bool populate);

    // Shares the bag; the copy takes a reference of its own on the held object.
    CMgmtObjectBase(const CMgmtObjectBase& other);
    CMgmtObjectBase& operator=(const CMgmtObjectBase&) = delete;
    virtual ~CMgmtObjectBase();

    // The value under `name` (not null), or null when the bag has none and holds no class object. A name that
    // the class object does not know has an empty value. A date-and-time property that is read on demand is
    // a VT_DATE when its text is a date, else it stays text. The pointer is valid until the same name is set
    // again or the last copy is destroyed; it stays the bag's.
    const _variant_t* GetPropertyValue(const std::wstring& name) const;
    const _variant_t* GetPropertyValue(const wchar_t* name) const;

    // Sets the value under `name` (not null). The held object is given VT_INT as VT_I4 and VT_DATE as
    // date-and-time text, and is not given empty, null and error values; the bag keeps `value` as it is.
    void SetPropertyValue(const std::wstring& name, const _variant_t& value);
    void SetPropertyValue(const wchar_t* name, const _variant_t& value);
    // VT_I4. Where `long` is wider than 32 bits, a value that needs more is a VT_I8.
    void SetPropertyValue(const wchar_t* name, long value);
    // VT_INT.
    void SetPropertyValue(const wchar_t* name, int value);
    // VT_R4.
    void SetPropertyValue(const wchar_t* name, float value);
    // VT_BOOL.
    void SetPropertyValue(const wchar_t* name, bool value);
    // VT_BSTR; null gives a VT_BSTR without a string.
    void SetPropertyValue(const wchar_t* name, const wchar_t* value);
    // VT_BSTR with the date-and-time text of `value`, taken as UTC and cut to the second. A null pointer and
    // a FILETIME that is no date (2^63 and above) change nothing: no wrong date is ever stored.
    void SetPropertyValue(const wchar_t* name, SYSTEMTIME* value);
    void SetPropertyValue(const wchar_t* name, FILETIME* value);

    // The properties in the bag by index. One view for all copies, freed with the bag; not to be deleted.
    CMgmtPropertyDataCollection* GetProperties();

    // Writes the bag into the held object, dates as date-and-time text, and returns the held object: a
    // VT_UNKNOWN with a reference of its own. An unbound bag gives what it holds, VT_EMPTY as a rule.
    operator const _variant_t();

    // The held object as XML text in the service's own form (WMI DTD 2.0): one instance or class with its
    // local properties, without qualifiers and system properties. What is only in the bag is not in it: a
    // value that the service refused, or that is null, shows as the held object has it. Convert the bag to a
    // variant first to write all of it into the held object. A null string when nothing is held, and when
    // the service cannot give the text; the thread must have initialised COM.
    _bstr_t GetXML();

    // Date-and-time text (CIM DATETIME) to an automation date and back. The offset from UTC is neither read
    // nor anything but "+000" when written; the six digits of the fraction are the milliseconds of the
    // platform's conversions as they are. Stateless, nothing is thrown, false on failure or a null pointer.
    //
    // DATETIME2Date leaves `date` untouched on failure. Date2DATETIME writes 25 characters and a terminator
    // into the `count` characters of `buffer`; with less room than that it writes what fits, terminated, and
    // returns false; a date out of range leaves the buffer untouched.
    static bool DATETIME2Date(const wchar_t* datetime, double* date);
    static bool Date2DATETIME(double date, wchar_t* buffer, unsigned long count);

 protected:
    // Binds the bag to the class object that `object` carries and reads all its properties, with no change of
    // type. False, and nothing changed, when there is none. Records of other names stay.
    bool PopulateObjectProperties(const _variant_t* object);

    // Reads all of `object`'s properties into the bag; false when the service refuses to list them. With
    // `datesAsDates` a date-and-time property whose text is a date becomes a VT_DATE.
    MGMT_LOCAL bool _ReadProperties(IWbemClassObject& object, bool datesAsDates = false);

    // Makes `object` the held object.
    MGMT_LOCAL void _Hold(IWbemClassObject* object);

    // SetPropertyValue that takes both arguments over; `value` is left empty.
    MGMT_LOCAL void _TakeProperty(std::wstring&& name, VARIANT& value);

    // The map, its view and the count are one allocation, shared by the copies.
    std::map<std::wstring, CMgmtPropertyData*>* m_PropertyMap = nullptr;
    CMgmtPropertyDataCollection* m_Properties = nullptr;
    _variant_t m_WMIObject;
    std::int32_t* m_RefCount = nullptr;

 private:
    MGMT_LOCAL const _variant_t* _FindValue(const std::wstring& name) const;
    MGMT_LOCAL const _variant_t* _FetchValue(std::wstring&& name) const;
    MGMT_LOCAL const _variant_t* _Store(std::wstring&& name, VARIANT& value) const;

    // The same, found at once where the record belongs right before `hint`. The record's place.
    using Place = std::map<std::wstring, CMgmtPropertyData*>::iterator;
    MGMT_LOCAL Place _Store(Place hint, std::wstring&& name, VARIANT& value) const;
};
