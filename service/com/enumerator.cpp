#include "service/com/enumerator.h"

#include <algorithm>

#include "service/com/boundary.h"

namespace service {

HRESULT ObjectList::Reset() {
    position_ = 0;
    return S_OK;
}

HRESULT ObjectList::Next(long lTimeout, ULONG uCount, IWbemClassObject** apObjects, ULONG* puReturned) {
    if (!apObjects || !puReturned || lTimeout < WBEM_INFINITE) {
        return Report(Status(WBEM_E_INVALID_PARAMETER,
                             "a place for the objects and their number is needed, and a time-out"));
    }
    ULONG returned = 0;
    for (; returned < uCount && position_ < objects_.size(); ++returned, ++position_) {
        apObjects[returned] = objects_[position_];
        apObjects[returned]->AddRef();
    }
    *puReturned = returned;
    return returned == uCount ? S_OK : static_cast<HRESULT>(WBEM_S_FALSE);
}

HRESULT ObjectList::NextAsync(ULONG, IWbemObjectSink*) {
    return Report(
        Status(WBEM_E_NOT_SUPPORTED, "an asynchronous enumeration is not supported by this service"));
}

HRESULT ObjectList::Clone(IEnumWbemClassObject** ppEnum) {
    return AtBoundary([&]() -> Status {
        if (!ppEnum) return NullArgument("ppEnum");
        *ppEnum = MakeCom<ObjectList>(objects_, position_).Detach();
        return {};
    });
}

HRESULT ObjectList::Skip(long, ULONG nCount) {
    const size_t left = objects_.size() - position_;
    position_ += std::min<size_t>(nCount, left);
    return nCount <= left ? S_OK : static_cast<HRESULT>(WBEM_S_FALSE);
}

}  // namespace service
