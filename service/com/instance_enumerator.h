// InstanceEnumerator: IEnumWbemClassObject over the instances of a class, read from the store as it goes on.
// Only for service/com.
//
//   *ppEnum = MakeCom<InstanceEnumerator>(connection, std::move(*cursor), selection, flags).Detach();
//
// It shows the instances as they were when it was made, and holds some of them at a time: memory does not
// grow with the class. Left open it costs nothing and stops nobody; see instance_scan.h for when it cannot go
// on. Next then fails with WBEM_E_NOT_AVAILABLE. An instance whose record is damaged makes Next fail once;
// the next call goes on behind it. When there was no memory for what comes next, every further call fails.
//
// Reset begins anew, with the instances as they are then. Clone goes on from the same place, independently.
// Neither is possible when the caller asked for WBEM_FLAG_FORWARD_ONLY. One thread at a time.
#pragma once

#include <optional>
#include <vector>

#include <wbemidl.h>

#include "service/com/com_object.h"
#include "service/com/connection.h"
#include "service/com/selection.h"
#include "service/model/instance.h"
#include "service/store/instance_cursor.h"

namespace service {

class InstanceEnumerator final : public ComObject<IEnumWbemClassObject> {
 public:
    // Finds the instances of interest.
    struct Source {
        ConnectionPtr connection;
        std::string class_name;
        Depth depth = Depth::kDeep;
        std::optional<Selection> selection;  // all of them, whole, without one
        bool is_forward_only = false;

        Result<InstanceCursor> Open() const {
            return InstanceCursor::Open(connection->repository, connection->space, class_name, depth);
        }
    };

    static Result<CComPtr<InstanceEnumerator>> Make(Source source);

    HRESULT STDMETHODCALLTYPE Reset() override;
    HRESULT STDMETHODCALLTYPE Next(long lTimeout, ULONG uCount, IWbemClassObject** apObjects,
                                   ULONG* puReturned) override;
    HRESULT STDMETHODCALLTYPE NextAsync(ULONG uCount, IWbemObjectSink* pSink) override;
    HRESULT STDMETHODCALLTYPE Clone(IEnumWbemClassObject** ppEnum) override;
    HRESULT STDMETHODCALLTYPE Skip(long lTimeout, ULONG nCount) override;

 private:
    template <typename Object, typename... Arguments>
    friend CComPtr<Object> MakeCom(Arguments&&... arguments);
    class Deadline;

    InstanceEnumerator(Source source, InstanceCursor cursor)
        : source_(std::move(source)), cursor_(std::move(cursor)) {}
    InstanceEnumerator(const InstanceEnumerator& other);
    ~InstanceEnumerator() override = default;

    Status CheckNotForwardOnly() const;
    bool IsAtEnd() const noexcept {
        return next_ == ready_.size() && cursor_.AtEnd() && fault_.ok() && !is_broken_;
    }
    Status Advance(const Deadline& deadline, ULONG count, IWbemClassObject** objects, ULONG& advanced);
    void Refill();

    Source source_;
    InstanceCursor cursor_;
    std::vector<Instance> ready_;  // those from next_ on are to come
    size_t next_ = 0;
    size_t batch_ = 0;        // instances that were read at once the last time
    Status fault_;            // met behind what is ready
    bool is_broken_ = false;  // an exception left no telling what is still to come
};

}  // namespace service
