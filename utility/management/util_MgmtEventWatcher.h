// CMgmtEventWatcher calls handlers when instances of a class are created, modified or deleted.
//
//   CMgmtEventWatcher watcher(0, L"RetentionPolicy", nullptr, 5);   // modifications, seen within 5 s
//   watcher.AddEventArrivedEventHandler(&handler);
//   if (!watcher.Start()) ...;   // and at the end: watcher.Stop()
//
// Threads. The watcher locks nothing: one thread at a time constructs, copies, assigns, starts, stops and
// destroys it, and it must have initialised COM for Start and Stop. The service calls the handlers on threads
// of its own, on several at once. So handlers are registered before Start, and none is added while a
// subscription runs.
//
// Lifetime. While a subscription runs, the watcher that started it must stay alive and must not be assigned
// to: until its Stop (or that of a copy made after Start) has returned true and no handler is running any
// more. The service lets a Stop on any other thread wait for the handlers that are running; a Stop from
// within a handler returns at once, so a handler must not destroy its watcher; and events that were on their
// way with the one that it is called for may still be handled.
//
// Processes. A process may end while subscriptions run: no handler is called any more once exit has begun or
// main has returned, and the end waits for those that are running, a second at most. A forked child has none
// of its parent's subscriptions: there Stop returns false. A subscription stays with the store that it began
// with. When that is removed and made anew it hears nothing more, and neither does one that the same watcher
// starts again; a watcher of a new default scope has the new store.
//
// Exceptions. Start and Stop throw CManagementException MGMT_ERR_SHARED_DATA as CMgmtScope does. Memory that
// cannot be allocated raises std::bad_alloc, _com_error or CAtlException. What a handler throws ends the
// dispatch of that event and goes no further; it is logged as a failure that names it by what it carries:
//
//   WMI EventSink->Indicate() exception. <what()>        std::exception
//   WMI EventSink->Indicate() exception. error = %d      OS::CException, CManagementException
//   WMI EventSink->Indicate() exception. hr=0x%x         _com_error, CAtlException
//   WMI EventSink->Indicate() exception. unknown         anything else
//
// The same holds for what fails before a handler is reached, a copy that there is no memory for.
#pragma once

#include <string>
#include <vector>

#include <comutil.h>

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtEventArrivedHandler.h"
#include "utility/management/util_MgmtScope.h"

class MGMT_API CMgmtEventWatcher {
 public:
    // Watches the instances of the class and of its subclasses. `eventType` is 0 for modifications, 1 for
    // creations, 2 for deletions; with any other, Start returns false. `instanceID` narrows the watch to the
    // instance with this INSTANCE_ID; null or empty watches all. `interval` is how often the service looks
    // for changes where it is not told of them, in seconds.
    //
    // The texts are copied and put into the query as they are, without escapes: a quotation mark in them
    // makes another query. The query is cut at 255 characters, after which the service refuses it as a rule.
    // A null or empty class name leaves nothing to watch: Start returns false.
    //
    // The watcher takes the default scope of the moment. Nothing is asked of the service.
    CMgmtEventWatcher(int eventType, const wchar_t* className, const wchar_t* instanceID, int interval);

    // Watches what the notification query, in the language WQL, asks for; it is copied and may have any
    // length. Events without a TargetInstance come with an empty event object. With a null or empty query
    // Start returns false.
    CMgmtEventWatcher(const wchar_t* query);

    // A copy has the same handlers, scope and subscription: its Stop cancels the subscription of the
    // original, whose events still go to the original alone. A handler gets a Release from each of the two.
    // Assignment forgets the handlers that were registered here, without a Release, and leaves a subscription
    // that was started here running; when it throws, nothing has changed.
    CMgmtEventWatcher(const CMgmtEventWatcher& other);
    CMgmtEventWatcher& operator=(const CMgmtEventWatcher& other);

    // Calls Release of every handler, in the order of registration. No subscription is cancelled.
    virtual ~CMgmtEventWatcher();

    // Handlers are called in the order of registration. The handler stays the caller's and must live until
    // its Release is called. One that is registered already, and null, is ignored. A handler may be
    // registered with several watchers; it is then called by each of them.
    void AddEventArrivedEventHandler(CMgmtEventArrivedHandler* handler);

    // Subscribes, connecting the scope if needed; true when the service has accepted. The first event may
    // arrive before Start returns. False, with the reason in the thread's error object where it came from the
    // service, when there is no connection, nothing to watch or the query is refused. Nothing is logged.
    //
    // Without a Stop in between there are then two subscriptions, both calling the handlers, and only the
    // later one can be cancelled.
    bool Start();

    // Cancels the subscription of the latest Start; true when the service has accepted, after which it begins
    // no more calls. False when there is nothing to cancel and when the service refuses.
    bool Stop();

 private:
    friend class CWMIEventSink;

    MGMT_LOCAL void ProcessEvent(CMgmtEventArrivedArgs& args);

    // Empty when there is nothing to ask for.
    MGMT_LOCAL std::wstring _MakeQuery() const;

    int m_EventType;
    int m_PollingInterval;
    std::wstring m_ClassName;
    std::wstring m_InstanceID;
    std::wstring m_Query;
    _variant_t m_SinkHolder;  // the latest sink, VT_UNKNOWN, or empty
    std::vector<CMgmtEventArrivedHandler*> m_Handlers;
    CMgmtScope m_Scope;
};
