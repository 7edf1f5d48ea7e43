// CMgmtPropertyData is one property: a name and a value, both owned by the record.
//
//   CMgmtPropertyData record(L"KeepDays", _variant_t(30L));
//   record.GetName()->c_str();    // L"KeepDays"
//   record.GetValue()->lVal;      // 30
//
// The record locks nothing: a caller who shares one among threads serialises the access.
#pragma once

#include <string>
#include <utility>

#include <comutil.h>

#include "utility/common/mgmt_export.h"

class MGMT_API CMgmtPropertyData {
 public:
    // Copies both; the copy of the value is deep (a text is a BSTR of its own, an interface gains a
    // reference). Throws _com_error with the HRESULT of a failed copy, and std::bad_alloc.
    CMgmtPropertyData(const std::wstring& name, const _variant_t& value);
    CMgmtPropertyData(const CMgmtPropertyData& other);
    // Throws as the constructors do; the record is then as it was.
    CMgmtPropertyData& operator=(const CMgmtPropertyData& other);
    virtual ~CMgmtPropertyData();

    // Pointers into the record, valid as long as the record; not to be freed.
    const std::wstring* GetName() const;
    const _variant_t* GetValue() const;

 private:
    friend class CMgmtObjectBase;

    // Takes both over; `value` is left empty. The tag keeps the callers' overloads unambiguous.
    struct TakeOver {};
    MGMT_LOCAL CMgmtPropertyData(TakeOver /*tag*/, std::wstring&& name, VARIANT& value)
        : m_Name(std::move(name)), m_Value(value, false) {}

    std::wstring m_Name;
    _variant_t m_Value;
};
