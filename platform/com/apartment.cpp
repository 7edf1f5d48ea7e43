#include "platform/com/apartment.h"

#include <objbase.h>

namespace {

constexpr DWORD KNOWN_FLAGS = COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE | COINIT_SPEED_OVER_MEMORY;

struct Apartment {
    // Initialisations that were not taken back yet.
    ULONG initializations;
    // COINIT_MULTITHREADED or COINIT_APARTMENTTHREADED; means nothing while there are none.
    DWORD model;
};

thread_local Apartment apartment = {0, COINIT_MULTITHREADED};

}  // namespace

bool mgmt_platform::IsComInitialized() noexcept {
    return apartment.initializations != 0;
}

HRESULT STDAPICALLTYPE CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit) noexcept {
    if (pvReserved != nullptr || (dwCoInit & ~KNOWN_FLAGS) != 0) return E_INVALIDARG;
    const DWORD model = dwCoInit & COINIT_APARTMENTTHREADED;
    if (apartment.initializations == 0) {
        apartment = {1, model};
        return S_OK;
    }
    if (apartment.model != model) return RPC_E_CHANGED_MODE;
    ++apartment.initializations;
    return S_FALSE;
}

HRESULT STDAPICALLTYPE CoInitialize(LPVOID pvReserved) noexcept {
    return CoInitializeEx(pvReserved, COINIT_APARTMENTTHREADED);
}

void STDAPICALLTYPE CoUninitialize() noexcept {
    if (apartment.initializations != 0) --apartment.initializations;
}
