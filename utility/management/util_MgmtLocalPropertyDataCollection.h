// CMgmtLocalPropertyDataCollection is a set of named values kept by an integer index.
//
//   CMgmtLocalPropertyDataCollection settings;
//   _variant_t days(30L);
//   settings.AddPropertyData(7, L"KeepDays", days);
//   settings.GetIntValue(7);              // 30; 0 for an index that was never added
//
// A small handle: copies share the entries. All operations may be called on several threads at once. What
// they hand out points into an entry's record, which has no lock of its own: the reference of GetValue and
// the text of GetStrValue must not be used while another thread updates that index or changes that value.
// GetIntValue and GetBoolValue read under the collection's lock, so updates of the index through the
// collection do not hurt them.
//
// Every operation but copying, assigning and destroying first makes a record, without entries, for a handle
// that has none. CManagementException MGMT_ERR_SHARED_DATA is thrown when a record cannot be allocated,
// _com_error when a name or a value cannot be copied and std::bad_alloc when the list cannot grow; the
// collection is then as it was.
#pragma once

#include <comutil.h>

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtLocalPropertyData.h"

class MGMT_API CMgmtLocalPropertyDataCollection {
 public:
    CMgmtLocalPropertyDataCollection();
    CMgmtLocalPropertyDataCollection(const CMgmtLocalPropertyDataCollection& other) noexcept;
    CMgmtLocalPropertyDataCollection& operator=(const CMgmtLocalPropertyDataCollection& other) noexcept;
    ~CMgmtLocalPropertyDataCollection();

    // The entry of `index`, an old one or a new, shares the record of `data` from now on.
    void AddPropertyData(int index, CMgmtLocalPropertyData& data);

    // Gives the record of the entry of `index` copies of the name (which may be null) and the value, for
    // every handle of that record; or adds an entry with a record of its own. Throws _com_error
    // DISP_E_ARRAYISLOCKED, with nothing changed, when the entry's old value is a locked array.
    void AddPropertyData(int index, const wchar_t* name, _variant_t& value);

    // The value of `index`, valid until the index is updated or the entry's record destroyed. An index that
    // was never added gives an empty value, one for all such indices: it is not to be written to. What is
    // written to it in spite of that is thrown away by the next look-up that finds nothing.
    _variant_t& GetValue(int index);

    // The value of `index` as what its type is: VT_INT, VT_I4, VT_UINT or VT_UI4 (of which a value above
    // 2147483647 comes out negative); VT_BSTR (the text stays the value's; null for a VT_BSTR without a
    // string); VT_BOOL. An empty or null value, or no entry, gives 0, "" or false. Any other type throws
    // CManagementException MGMT_ERR_VALUE_TYPE; nothing is converted.
    int GetIntValue(int index);
    const wchar_t* GetStrValue(int index);
    bool GetBoolValue(int index);

    // The number of different indices that were added.
    int GetPropertyDataCount();

 private:
    struct SharedData;

    MGMT_LOCAL void _AddRef() noexcept;
    MGMT_LOCAL void _Free() noexcept;
    MGMT_LOCAL SharedData& _Ensure(int line);

    SharedData* m_SharedData;
};
