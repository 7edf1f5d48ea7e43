// CMgmtLocalPropertyData is a name with a value, built by the caller and unknown to the management service.
//
//   _variant_t days(30L);
//   CMgmtLocalPropertyData data(L"KeepDays", days);
//   CMgmtLocalPropertyData same(data);
//   same.SetValue(_variant_t(60L));       // data.GetValue() is 60, too
//
// A small handle: copies share one record. Handles of one record may be copied and destroyed on any thread;
// the record itself has no lock, so changing it is serialised with every other use of it by the caller.
//
// Every operation but copying, assigning and destroying first makes a record, with a null name and an empty
// value, for a handle that has none. CManagementException MGMT_ERR_SHARED_DATA is thrown when a record cannot
// be allocated, _com_error when a name or a value cannot be copied; the record is then as it was.
#pragma once

#include <comutil.h>

#include "utility/common/mgmt_export.h"

class MGMT_API CMgmtLocalPropertyData {
 public:
    // Copies both. A null `name` gives a null name.
    CMgmtLocalPropertyData(const wchar_t* name, _variant_t& value);
    CMgmtLocalPropertyData(const CMgmtLocalPropertyData& other) noexcept;
    CMgmtLocalPropertyData& operator=(const CMgmtLocalPropertyData& other) noexcept;
    ~CMgmtLocalPropertyData();

    // The name, or null; valid until the name is changed or the record is destroyed.
    const wchar_t* GetName();

    // The value itself: writing through the reference changes it for every handle. Valid as long as the
    // record.
    _variant_t& GetValue();

    void SetName(const wchar_t* name);

    // Throws _com_error DISP_E_ARRAYISLOCKED, with the value as it was, when the old value is a locked array.
    void SetValue(const _variant_t& value);

 private:
    friend class CMgmtLocalPropertyDataCollection;

    struct SharedData;

    MGMT_LOCAL void _AddRef() noexcept;
    MGMT_LOCAL void _Free() noexcept;
    MGMT_LOCAL SharedData& _Ensure(int line);

    // SetName and SetValue in one, all or nothing. Takes `value` over and leaves it empty.
    MGMT_LOCAL void _Replace(const _bstr_t& name, _variant_t& value);

    SharedData* m_SharedData;
};
