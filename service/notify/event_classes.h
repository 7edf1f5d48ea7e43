// The classes of the events that a subscription can ask for, and their instances.
//
//   class __Event { uint64 TIME_CREATED; };                            // 100 ns since 1601-01-01 00:00 UTC
//   class __InstanceOperationEvent : __Event { object TargetInstance; };
//   class __InstanceCreationEvent : __InstanceOperationEvent {};
//   class __InstanceModificationEvent : __InstanceOperationEvent { object PreviousInstance; };
//   class __InstanceDeletionEvent : __InstanceOperationEvent {};
//
// They are in every namespace, for queries alone: they are neither stored nor listed. Any thread.
#pragma once

#include <string_view>

#include "service/model/class_definition.h"
#include "service/model/instance.h"
#include "service/store/store.h"

namespace service {

// The event class of that name, without regard to case; null for another name. __Event is not one that can be
// asked for.
ClassPtr FindEventClass(std::string_view name);

// Whether a query of `event_class` is also for changes of that kind.
bool CoversKind(const ClassDefinition& event_class, ChangeKind kind);

// The event of a change at `time_ns`, since 1970. `before` is null for a creation, `after` for a deletion.
Result<Instance> MakeEvent(ChangeKind kind, int64_t time_ns, ObjectPtr before, ObjectPtr after);

}  // namespace service
