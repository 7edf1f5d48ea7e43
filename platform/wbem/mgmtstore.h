// This platform's own: the care of the store behind the management service, and what the published interfaces
// do not tell of a namespace.
//
//   CComPtr<IMgmtStore> store;
//   store.CoCreateInstance(CLSID_MgmtStore);
//   MgmtStoreCounts counts = {};
//   store->Check(&mine, &counts);   // S_OK, or WBEM_S_FALSE when something was found
//
// A store object speaks for the store that the process uses at the time of the call. Any thread that has
// initialised COM. Failures leave the thread's error object, as those of the service do.
#pragma once

#include <oleauto.h>
#include <unknwn.h>
#include <wtypes.h>

// {7E0B4B0A-63C4-4C1D-9A55-0C6E4A1D52F3}
inline constexpr CLSID CLSID_MgmtStore = {
    0x7e0b4b0a, 0x63c4, 0x4c1d, {0x9a, 0x55, 0x0c, 0x6e, 0x4a, 0x1d, 0x52, 0xf3}};

// Implemented by whoever wants to know. Called on the calling thread, within the call; it must not write to
// the store, and its results are ignored.
struct IMgmtStoreReport : IUnknown {
    // How far it has come, now and then; `total` is an estimate and 0 where there is none.
    virtual HRESULT STDMETHODCALLTYPE Progress(ULONGLONG done, ULONGLONG total) = 0;
    // One sentence on a thing that is wrong, naming it; valid during the call.
    virtual HRESULT STDMETHODCALLTYPE Finding(LPCWSTR sentence) = 0;

 protected:
    ~IMgmtStoreReport() = default;
};
MGMT_DEFINE_IID(IMgmtStoreReport, 0x2c9d7f16, 0x0b8e, 0x4d3a, 0x8f, 0x42, 0xd1, 0x6a, 0x57, 0x90, 0xbe, 0x08);

struct MgmtStoreCounts {
    ULONGLONG namespaces;
    ULONGLONG classes;
    ULONGLONG instances;
    ULONGLONG changes;  // that the change log holds
    ULONGLONG findings;
};

// One documented limit, and what of it is in use.
struct MgmtStoreLimit {
    BSTR name;  // of the caller's to free, as is `unit`
    BSTR unit;  // "bytes", "units", "properties", ...
    ULONGLONG limit;
    ULONGLONG used;   // the most that anything in the store has
    BOOL is_counted;  // FALSE where `used` is not known and 0
};

struct IMgmtStore : IUnknown {
    // Reads every record of one consistent state and says what does not hold. Others may write meanwhile.
    // S_OK when all is well, WBEM_S_FALSE when there were findings. `report` may be null.
    virtual HRESULT STDMETHODCALLTYPE Check(IMgmtStoreReport* report, MgmtStoreCounts* counts) = 0;

    // Writes a consistent copy of the store as a new directory `path`, which can be used as a store at once.
    // Others may write meanwhile. WBEM_E_ALREADY_EXISTS when there is something of that name; nothing is left
    // behind by a failure.
    virtual HRESULT STDMETHODCALLTYPE Backup(LPCWSTR path, IMgmtStoreReport* report) = 0;

    // The limit of that number, from 0 on; WBEM_S_NO_MORE_DATA behind the last. The counts are taken anew by
    // the call for number 0.
    virtual HRESULT STDMETHODCALLTYPE GetLimit(ULONG number, MgmtStoreLimit* limit) = 0;

    // The qualifier declarations of a namespace as MOF, in the order of their names; an empty text for none.
    virtual HRESULT STDMETHODCALLTYPE GetQualifierTypes(LPCWSTR name_space, BSTR* mof) = 0;

 protected:
    ~IMgmtStore() = default;
};
MGMT_DEFINE_IID(IMgmtStore, 0x94a3c1de, 0x7f25, 0x4b69, 0xa1, 0x0c, 0x3e, 0x88, 0x65, 0xd2, 0x4f, 0x17);
