// CMgmtBSTRArrayAccessHelper turns an array value of strings into a list of strings and back.
//
//   CMgmtBSTRArrayAccessHelper servers(object.GetPropertyValue(L"Servers"));
//   servers.Add(L"backup");
//   _variant_t value;
//   if (servers.PutElementsIntoArray(value)) object.SetPropertyValue(L"Servers", value);
//
// A plain value for one thread at a time; copies share nothing that changes.
//
// A string that cannot be allocated raises the string wrapper's _com_error, growth of the list
// std::bad_alloc; the list is then as it was. Nothing else is thrown but where it is said.
#pragma once

#include <cstddef>
#include <vector>

#include <comutil.h>

#include "utility/common/mgmt_export.h"

class MGMT_API CMgmtBSTRArrayAccessHelper {
 public:
    CMgmtBSTRArrayAccessHelper();

    // GetElementsFromArray; a value that cannot be read leaves the list empty.
    CMgmtBSTRArrayAccessHelper(const _variant_t* source);
    CMgmtBSTRArrayAccessHelper(const CMgmtBSTRArrayAccessHelper& other);
    CMgmtBSTRArrayAccessHelper& operator=(const CMgmtBSTRArrayAccessHelper& other);
    ~CMgmtBSTRArrayAccessHelper();

    // Replaces the list by the strings of the array in `source`, whatever its lower bound, and returns their
    // number. A string is copied up to its first null unit; a null string is a null entry. Of an array with
    // several dimensions as many strings are read from the start of the data as the first one counts.
    //
    // Returns 0 with the list unchanged when `source` is null or not exactly a VT_ARRAY | VT_BSTR (an array
    // by reference is not), and 0 with the list empty when the array is empty, cannot be locked, or holds
    // something other than its variant says.
    int GetElementsFromArray(const _variant_t* source);

    // Stores the list, which stays, as a new array with lower bound 0 in `target`, which owns it. `target`
    // should be empty; a value that it holds is freed. False, with `target` untouched and nothing left
    // behind, when the array or any of the strings cannot be allocated, or `target` holds a locked array.
    bool PutElementsIntoArray(_variant_t& target);

    // Append a copy of the text up to its null; null appends a null entry. Narrow text is in the system's
    // code page (CP_ACP, see MultiByteToWideChar); text that is not valid there raises _com_error with the
    // system error as a result code, HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION).
    void Add(const wchar_t* value);
    void Add(const char* value);

    size_t GetElementsCount();

    // The string at `index`, counted from 0; null for a null entry and when there is none. It stays the
    // helper's and is valid until the list changes.
    const wchar_t* GetElement(size_t index);

 private:
    std::vector<_bstr_t> m_Elements;
};
