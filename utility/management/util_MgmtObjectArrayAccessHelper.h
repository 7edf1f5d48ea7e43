// CMgmtObjectArrayAccessHelper turns an array value of embedded objects into a list of property bags and
// back.
//
//   CMgmtObjectArrayAccessHelper rules(object.GetPropertyValue(L"Rules"));
//   rules.GetElement(0)->SetPropertyValue(L"Enabled", true);
//   _variant_t value;
//   if (rules.PutElementsIntoArray(value)) object.SetPropertyValue(L"Rules", value);
//
// The helper owns the bags in its list. For one thread at a time, and so are the helper's copies and
// everything that shares a bag or a class object with them.
//
// What making, copying and writing a CMgmtObjectBase raises passes through, growth of the list raises
// std::bad_alloc; the list is then as it was, and nothing is leaked.
#pragma once

#include <cstddef>
#include <vector>

#include <comutil.h>

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtObjectBase.h"

class MGMT_API CMgmtObjectArrayAccessHelper {
 public:
    CMgmtObjectArrayAccessHelper();

    // GetElementsFromArray; a value that cannot be read leaves the list empty.
    CMgmtObjectArrayAccessHelper(const _variant_t* source);

    // Copy every object with the copy constructor of CMgmtObjectBase: each list owns objects of its own,
    // which share their bags as copies of a CMgmtObjectBase do.
    CMgmtObjectArrayAccessHelper(const CMgmtObjectArrayAccessHelper& other);
    CMgmtObjectArrayAccessHelper& operator=(const CMgmtObjectArrayAccessHelper& other);
    ~CMgmtObjectArrayAccessHelper();

    // Replaces the list by new bags, each bound to an object of the array in `source` and filled from it, and
    // returns their number. An element that is null or no class object gives an unbound, empty bag. The
    // array's lower bound does not matter; of an array with several dimensions as many objects are read from
    // the start of the data as the first one counts. The old list is destroyed last: `source` may lie in it.
    //
    // Returns 0 with the list unchanged when `source` is null or not exactly a VT_ARRAY | VT_UNKNOWN (an
    // array by reference is not), and 0 with the list empty when the array is empty, cannot be locked, or
    // holds something other than its variant says.
    int GetElementsFromArray(const _variant_t* source);

    // Writes each bag into its class object and stores the class objects, with references of their own, as a
    // new array with lower bound 0 in `target`, which owns it; an unbound bag becomes a null element. The
    // list stays. `target` should be empty; a value that it holds is freed. False, with `target` untouched
    // and nothing left behind, when the array cannot be allocated, any of the objects cannot be put, or
    // `target` holds a locked array.
    bool PutElementsIntoArray(_variant_t& target);

    // Writes the bag of `value` into its class object and appends a new bag bound to that object and filled
    // from it. The caller keeps `value`. Null and an object that holds no VT_UNKNOWN append nothing.
    void Add(const CMgmtObjectBase* value);

    size_t GetElementsCount();

    // The object at `index`, counted from 0, or null when there is none. It stays the helper's and is valid
    // until the list is replaced or the helper is destroyed.
    CMgmtObjectBase* GetElement(size_t index);

 private:
    MGMT_LOCAL void Reset() noexcept;

    std::vector<CMgmtObjectBase*> m_Elements;
};
