#include "service/com/instance_enumerator.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "service/com/boundary.h"
#include "service/com/class_object.h"

namespace service {
namespace {

// The first instance comes at once; later ones are read more at a time.
constexpr size_t kFirstBatch = 8;
constexpr size_t kLargestBatch = 256;

}  // namespace

// Begins to count when it is made.
class InstanceEnumerator::Deadline {
 public:
    explicit Deadline(long milliseconds)
        : milliseconds_(milliseconds), begin_(milliseconds > 0 ? Clock::now() : Clock::time_point()) {}

    bool HasPassed() const {
        if (milliseconds_ == WBEM_INFINITE) return false;
        return milliseconds_ == WBEM_NO_WAIT ||
               Clock::now() - begin_ >= std::chrono::milliseconds(milliseconds_);
    }

 private:
    using Clock = std::chrono::steady_clock;
    const long milliseconds_;
    const Clock::time_point begin_;
};

Result<CComPtr<InstanceEnumerator>> InstanceEnumerator::Make(Source source) {
    SERVICE_ASSIGN_OR_RETURN(InstanceCursor cursor, source.Open());
    return MakeCom<InstanceEnumerator>(std::move(source), std::move(cursor));
}

InstanceEnumerator::InstanceEnumerator(const InstanceEnumerator& other)
    : source_(other.source_),
      cursor_(other.cursor_),
      ready_(other.ready_.begin() + static_cast<std::ptrdiff_t>(other.next_), other.ready_.end()),
      batch_(other.batch_),
      is_broken_(other.is_broken_) {
    if (!other.fault_.ok()) fault_ = Status(other.fault_.code(), other.fault_.reason());
}

Status InstanceEnumerator::CheckNotForwardOnly() const {
    if (!source_.is_forward_only) return {};
    return {WBEM_E_INVALID_OPERATION, "the enumeration was asked for with WBEM_FLAG_FORWARD_ONLY"};
}

HRESULT InstanceEnumerator::Reset() {
    return AtBoundary([&]() -> Status {
        SERVICE_RETURN_IF_ERROR(CheckNotForwardOnly());
        SERVICE_ASSIGN_OR_RETURN(cursor_, source_.Open());
        is_broken_ = false;
        ready_.clear();
        next_ = 0;
        batch_ = 0;
        fault_ = {};
        return {};
    });
}

HRESULT InstanceEnumerator::Next(long lTimeout, ULONG uCount, IWbemClassObject** apObjects,
                                 ULONG* puReturned) {
    HRESULT success = S_OK;
    const HRESULT result = AtBoundary([&]() -> Status {
        if (!apObjects || !puReturned || lTimeout < WBEM_INFINITE) {
            return {WBEM_E_INVALID_PARAMETER,
                    "a place for the objects and their number is needed, and a time-out"};
        }
        *puReturned = 0;
        try {
            SERVICE_RETURN_IF_ERROR(Advance(Deadline(lTimeout), uCount, apObjects, *puReturned));
        } catch (const std::bad_alloc&) {
            // What was handed out already is the caller's; the next call fails.
            if (*puReturned == 0) throw;
        }
        if (*puReturned < uCount) success = static_cast<HRESULT>(IsAtEnd() ? WBEM_S_FALSE : WBEM_S_TIMEDOUT);
        return {};
    });
    return result == S_OK ? success : result;
}

HRESULT InstanceEnumerator::Skip(long lTimeout, ULONG nCount) {
    HRESULT success = S_OK;
    const HRESULT result = AtBoundary([&]() -> Status {
        if (lTimeout < WBEM_INFINITE) return {WBEM_E_INVALID_PARAMETER, "the time-out is negative"};
        ULONG skipped = 0;
        SERVICE_RETURN_IF_ERROR(Advance(Deadline(lTimeout), nCount, nullptr, skipped));
        if (skipped < nCount) success = static_cast<HRESULT>(IsAtEnd() ? WBEM_S_FALSE : WBEM_S_TIMEDOUT);
        return {};
    });
    return result == S_OK ? success : result;
}

// Hands out the next ones, or passes them over where `objects` is null. A fault is returned when there is
// nothing to hand out before it.
Status InstanceEnumerator::Advance(const Deadline& deadline, ULONG count, IWbemClassObject** objects,
                                   ULONG& advanced) {
    while (advanced < count) {
        for (; next_ < ready_.size() && advanced < count; ++next_, ++advanced) {
            if (!objects) continue;
            // A copy, which is cheap: nothing is lost when there is no memory for the object.
            objects[advanced] = ClassObject::OfInstance(source_.connection, ready_[next_]).Detach();
        }
        if (advanced == count) return {};
        if (!fault_.ok()) return advanced == 0 ? std::exchange(fault_, {}) : Status();
        if (is_broken_) {
            if (advanced != 0) return {};
            return {WBEM_E_OUT_OF_MEMORY,
                    "the enumeration was cut short by a lack of memory: begin it again"};
        }
        if (cursor_.AtEnd()) return {};
        Refill();
        if (ready_.empty() && deadline.HasPassed()) return {};
    }
    return {};
}

void InstanceEnumerator::Refill() {
    std::vector<Instance> read = std::exchange(ready_, {});
    next_ = 0;
    read.clear();
    batch_ = batch_ == 0 ? kFirstBatch : std::min(2 * batch_, kLargestBatch);
    is_broken_ = true;
    fault_ = cursor_.Read(batch_, read);
    if (source_.selection) {
        Status fault = source_.selection->Apply(read);
        if (fault_.ok()) fault_ = std::move(fault);
    }
    is_broken_ = false;
    ready_ = std::move(read);
}

HRESULT InstanceEnumerator::NextAsync(ULONG, IWbemObjectSink*) {
    return Report(
        Status(WBEM_E_NOT_SUPPORTED, "an asynchronous enumeration is not supported by this service"));
}

HRESULT InstanceEnumerator::Clone(IEnumWbemClassObject** ppEnum) {
    return AtBoundary([&]() -> Status {
        if (!ppEnum) return NullArgument("ppEnum");
        *ppEnum = nullptr;
        SERVICE_RETURN_IF_ERROR(CheckNotForwardOnly());
        *ppEnum = MakeCom<InstanceEnumerator>(*this).Detach();
        return {};
    });
}

}  // namespace service
