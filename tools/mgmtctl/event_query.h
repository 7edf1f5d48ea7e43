// The query that asks the service for the events of a class's instances.
//
//   EventQuery(L"Policy", L"mail", {EventKind::CREATED})
//   // SELECT * FROM __InstanceCreationEvent WITHIN 1 WHERE TargetInstance ISA "Policy"
//   //     AND TargetInstance.INSTANCE_ID = "mail"
//
// Stateless.
#pragma once

#include <set>
#include <string>

#include "tools/mgmtctl/event_kind.h"

namespace mgmtctl {

// Of one instance, or of all where `id` is empty; of the kinds given, or of all where there are none.
std::wstring EventQuery(const std::wstring& class_name, const std::wstring& id,
                        const std::set<EventKind>& kinds);

}  // namespace mgmtctl
