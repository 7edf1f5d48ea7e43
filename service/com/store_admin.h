// StoreAdmin: IMgmtStore, the care of the store that this process uses. Only for service/com.
//
//   if (rclsid == CLSID_MgmtStore) return MakeFactory<StoreAdmin>(riid, ppv);
//
// Any number of threads; but the limits that GetLimit tells by their numbers are those of the last call for
// number 0, so a caller that counts them keeps an object of its own.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <mgmtstore.h>

#include "service/com/com_object.h"
#include "service/model/status.h"
#include "service/store/fork.h"

namespace service {

class StoreAdmin final : public ComObject<IMgmtStore> {
 public:
    HRESULT STDMETHODCALLTYPE Check(IMgmtStoreReport* report, MgmtStoreCounts* counts) override;
    HRESULT STDMETHODCALLTYPE Backup(LPCWSTR path, IMgmtStoreReport* report) override;
    HRESULT STDMETHODCALLTYPE GetLimit(ULONG number, MgmtStoreLimit* limit) override;
    HRESULT STDMETHODCALLTYPE GetQualifierTypes(LPCWSTR name_space, BSTR* mof) override;

 private:
    template <typename Object, typename... Arguments>
    friend CComPtr<Object> MakeCom(Arguments&&... arguments);

    struct Limit {
        const char* name;
        const char* unit;
        uint64_t limit;
        uint64_t used;
        bool is_counted;
    };

    StoreAdmin() = default;
    ~StoreAdmin() override = default;

    static Result<std::vector<Limit>> CountLimits();

    std::mutex mutex_;
    std::vector<Limit> limits_;
};

}  // namespace service
