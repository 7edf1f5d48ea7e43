#include "service/com/notifications.h"

#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include <atlbase.h>
#include <objbase.h>

#include "service/com/boundary.h"
#include "service/com/class_object.h"
#include "service/com/variant_conversion.h"
#include "service/language/wql_parser.h"
#include "service/notify/notifier.h"

namespace service {
namespace {

// What tells one object from another, whichever of its interfaces is at hand.
CComPtr<IUnknown> IdentityOf(IUnknown* object) {
    CComPtr<IUnknown> identity;
    if (FAILED(object->QueryInterface(IID_PPV_ARGS(&identity)))) identity = object;
    return identity;
}

// COM, on the thread of a subscription.
class Apartment {
 public:
    Apartment() noexcept { CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
    ~Apartment() { CoUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
};

class SinkReceiver final : public EventReceiver {
 public:
    SinkReceiver(ConnectionPtr connection, IWbemObjectSink* sink)
        : connection_(std::move(connection)), sink_(sink), identity_(IdentityOf(sink)) {}

    bool IsFor(IUnknown* identity) const noexcept { return identity_ == identity; }

    void Deliver(std::vector<Instance> events) noexcept override {
        EnterApartment();
        std::vector<CComPtr<IWbemClassObject>> objects;
        std::vector<IWbemClassObject*> pointers;
        try {
            for (Instance& event : events) {
                objects.emplace_back(ClassObject::OfInstance(connection_, std::move(event)));
                pointers.push_back(objects.back());
            }
        } catch (const std::bad_alloc&) {
            return Report(WBEM_E_QUEUE_OVERFLOW, "events were lost: there is no memory to deliver them");
        }
        try {
            sink_->Indicate(static_cast<long>(pointers.size()), pointers.data());
        } catch (...) {
            // An exception of the sink's own goes no further.
        }
    }

    void Report(int32_t code, std::string_view reason) noexcept override {
        EnterApartment();
        try {
            CComBSTR text;
            AttachText(reason, text);
            sink_->SetStatus(WBEM_STATUS_COMPLETE, code, text, nullptr);
        } catch (...) {
            // As above.
        }
    }

 private:
    // The code says enough where there is no memory for the text.
    static void AttachText(std::string_view reason, CComBSTR& text) noexcept {
        try {
            Result<BSTR> made = MakeBstr(reason);
            if (made.ok()) text.Attach(*made);
        } catch (const std::bad_alloc&) {
            return;
        }
    }

    static void EnterApartment() noexcept { static thread_local const Apartment apartment; }

    const ConnectionPtr connection_;
    const CComPtr<IWbemObjectSink> sink_;
    const CComPtr<IUnknown> identity_;
};

}  // namespace

Status SubscribeSink(const ConnectionPtr& connection, const std::string& query, IWbemObjectSink* sink) {
    SERVICE_ASSIGN_OR_RETURN(const WqlQuery parsed, ParseWql(query));
    auto receiver = std::make_shared<SinkReceiver>(connection, sink);
    return Notifier::Of(connection->repository)
        ->Subscribe(connection->repository, connection->space, parsed, std::move(receiver));
}

Status CancelSink(const ConnectionPtr& connection, IWbemObjectSink* sink) {
    const CComPtr<IUnknown> identity = IdentityOf(sink);
    const size_t cancelled = Notifier::Of(connection->repository)->Cancel([&](const EventReceiver& receiver) {
        return static_cast<const SinkReceiver&>(receiver).IsFor(identity);
    });
    if (cancelled > 0) return {};
    return {WBEM_E_NOT_FOUND,
            "the sink has no subscription that could be cancelled: it was cancelled before, or never "
            "given to ExecNotificationQueryAsync"};
}

}  // namespace service
