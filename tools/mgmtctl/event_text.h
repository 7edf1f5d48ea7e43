// An event as people and as programs read it.
//
//   const Event event = ReadEvent(*object);
//   std::cout << EventText(event, Length::SHORT);
//   // 10:30:00.123 modified Policy.INSTANCE_ID="mail"
//   //     KeepDays: 30 -> 60
//
// An event belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "tools/mgmtctl/event_kind.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/rendering.h"

namespace mgmtctl {

struct Event {
    EventKind kind = EventKind::CREATED;
    std::uint64_t ticks = 0;             // when, see event_time.h
    CComPtr<IWbemClassObject> instance;  // as it is now; as it was when it was deleted
    CComPtr<IWbemClassObject> before;    // of a modification
};

// Throws OperationFailure for an object that is no event of an instance.
Event ReadEvent(IWbemClassObject& object);

// A line that says when and what, and below it the values that a new instance has, or those that were
// changed. Long values are cut with Length::SHORT, but never so that before and after look the same.
std::string EventText(const Event& event, Length length);

// The time, the kind and the path; the changes, of a modification; the whole instance.
OrderedJson EventJson(const Event& event);

}  // namespace mgmtctl
