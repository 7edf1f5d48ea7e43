// CMgmtSINT32ArrayAccessHelper turns an array value of signed 32-bit integers into a list and back.
//
//   CMgmtSINT32ArrayAccessHelper ports(object.GetPropertyValue(L"Ports"));
//   ports.Add(8080);
//   _variant_t value;
//   if (ports.PutElementsIntoArray(value)) object.SetPropertyValue(L"Ports", value);
//
// A plain value for one thread at a time. Growth of the list raises std::bad_alloc; the list is then as it
// was. Nothing else is thrown.
#pragma once

#include <cstddef>
#include <vector>

#include <comutil.h>

#include "utility/common/mgmt_export.h"

class MGMT_API CMgmtSINT32ArrayAccessHelper {
 public:
    CMgmtSINT32ArrayAccessHelper();

    // GetElementsFromArray; a value that cannot be read leaves the list empty.
    CMgmtSINT32ArrayAccessHelper(const _variant_t* source);
    CMgmtSINT32ArrayAccessHelper(const CMgmtSINT32ArrayAccessHelper& other);
    CMgmtSINT32ArrayAccessHelper& operator=(const CMgmtSINT32ArrayAccessHelper& other);
    ~CMgmtSINT32ArrayAccessHelper();

    // Replaces the list by the integers of the array in `source`, whatever its lower bound, and returns their
    // number. Of an array with several dimensions as many integers are read from the start of the data as the
    // first one counts.
    //
    // Returns 0 with the list unchanged when `source` is null or not exactly a VT_ARRAY | VT_I4 (an array by
    // reference is not), and 0 with the list empty when the array is empty, cannot be locked, or holds
    // something other than its variant says.
    int GetElementsFromArray(const _variant_t* source);

    // Stores the list, which stays, as a new array with lower bound 0 in `target`, which owns it. `target`
    // should be empty; a value that it holds is freed. False, with `target` untouched and nothing left
    // behind, when the array cannot be allocated, when any of the integers does not fit 32 bits (it is never
    // cut), or when `target` holds a locked array.
    bool PutElementsIntoArray(_variant_t& target);

    // Takes any `long`; one that does not fit 32 bits can be read again, but not be put into an array.
    void Add(long value);

    size_t GetElementsCount();

    // The integer at `index`, counted from 0; 0 when there is none, as for a 0 in the list.
    long GetElement(size_t index);

 private:
    std::vector<long> m_Elements;
};
