// The requests for notifications: a subscription's events become calls of the caller's sink. Only for
// service/com.
//
//   Status fault = SubscribeSink(connection, "SELECT * FROM __InstanceCreationEvent WITHIN 1 ...", sink);
//   Status ended = CancelSink(connection, sink);
//
// Any thread.
#pragma once

#include <string>

#include <wbemidl.h>

#include "service/com/connection.h"
#include "service/model/status.h"

namespace service {

// The sink gets the events of what is committed from now on, on a thread of the subscription's own that has
// initialised COM (multithreaded): Indicate with one or more events, in commit order; SetStatus with
// WBEM_E_QUEUE_OVERFLOW when events were lost, with another failure when an event cannot be read, and with
// WBEM_E_CALL_CANCELLED at the end.
Status SubscribeSink(const ConnectionPtr& connection, const std::string& query, IWbemObjectSink* sink);

// Cancels every subscription of the sink in this process to the connection's store; WBEM_E_NOT_FOUND when
// there is none. When it returns, the sink's running call has ended and it was told of the end, unless it is
// called from within a sink; see Subscription::Cancel.
Status CancelSink(const ConnectionPtr& connection, IWbemObjectSink* sink);

}  // namespace service
