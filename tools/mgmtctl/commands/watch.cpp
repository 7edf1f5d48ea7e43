#include <cerrno>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>

#include <comutil.h>
#include <poll.h>
#include <unistd.h>

#include "tools/mgmtctl/changes.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/event_query.h"
#include "tools/mgmtctl/event_sink.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/instance_path.h"
#include "tools/mgmtctl/interruption.h"
#include "tools/mgmtctl/output.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

struct Watched {
    std::wstring query;
    std::string name;  // for people
};

Watched ReadWatched(const Arguments& arguments) {
    if (!arguments.query.empty()) return {Wide(arguments.query), "what the query asks for"};
    const bool has_id = !arguments.id.empty();
    const ClassDeclaration declaration =
        has_id ? ReadClassWithId(arguments.class_name) : ReadClass(arguments.class_name);
    const std::wstring class_name = Wide(declaration.summary.name);
    const std::wstring id = Wide(arguments.id);
    return {EventQuery(class_name, id, arguments.kinds),
            Utf8(has_id ? InstancePath(class_name, id) : class_name)};
}

// Events for the sink while it lives.
class Subscription {
 public:
    Subscription(const Arguments& arguments, const std::wstring& query)
        : services_(Connect(arguments.namespace_path)), sink_(new EventSink(arguments)) {
        ForgetReason();
        const HRESULT result =
            services_->ExecNotificationQueryAsync(_bstr_t(L"WQL"), _bstr_t(query.c_str()), 0, nullptr, sink_);
        if (FAILED(result))
            throw OperationFailure("the query fails", TakeReason(result), "The query is: " + Utf8(query));
    }
    ~Subscription() {
        sink_->End();
        services_->CancelAsyncCall(sink_);
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    EventSink& sink() const { return *sink_; }

 private:
    const CComPtr<IWbemServices> services_;
    const CComPtr<EventSink> sink_;
};

// Until the sink has ended, somebody interrupts or nobody reads any more, which shows before the next event.
void WaitForEnd(const Flag& ended, const Interruption& interruption) {
    pollfd waited[] = {
        {ended.descriptor(), POLLIN, 0}, {interruption.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    while (true) {
        const int ready = poll(waited, std::size(waited), -1);
        if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category());
        if (ready > 0) return;
    }
}

}  // namespace

void Watch(const Arguments& arguments) {
    const Interruption interruption;
    const Watched watched = ReadWatched(arguments);
    const Subscription subscription(arguments, watched.query);
    std::cerr << "watching " + Printable(watched.name) + "; Ctrl-C ends\n";
    WaitForEnd(subscription.sink().ended(), interruption);
    subscription.sink().End();
    subscription.sink().ThrowFault();
}

}  // namespace mgmtctl
