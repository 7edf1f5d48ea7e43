// ObjectList: IEnumWbemClassObject over objects that are all there already. Only for service/com.
//
//   *ppEnum = MakeCom<ObjectList>(std::move(objects)).Detach();
//
// One thread at a time. Next never waits.
#pragma once

#include <vector>

#include <wbemidl.h>

#include "service/com/com_object.h"

namespace service {

class ObjectList final : public ComObject<IEnumWbemClassObject> {
 public:
    HRESULT STDMETHODCALLTYPE Reset() override;
    HRESULT STDMETHODCALLTYPE Next(long lTimeout, ULONG uCount, IWbemClassObject** apObjects,
                                   ULONG* puReturned) override;
    HRESULT STDMETHODCALLTYPE NextAsync(ULONG uCount, IWbemObjectSink* pSink) override;
    HRESULT STDMETHODCALLTYPE Clone(IEnumWbemClassObject** ppEnum) override;
    HRESULT STDMETHODCALLTYPE Skip(long lTimeout, ULONG nCount) override;

 private:
    template <typename Object, typename... Arguments>
    friend CComPtr<Object> MakeCom(Arguments&&... arguments);

    explicit ObjectList(std::vector<CComPtr<IWbemClassObject>> objects, size_t position = 0) noexcept
        : objects_(std::move(objects)), position_(position) {}
    ~ObjectList() override = default;

    std::vector<CComPtr<IWbemClassObject>> objects_;
    size_t position_;
};

}  // namespace service
