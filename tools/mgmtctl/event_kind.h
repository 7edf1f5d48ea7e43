// What can happen to an instance, and how the service calls the events of it.
//
//   const std::wstring name = EventClass(EventKind::MODIFIED);  // __InstanceModificationEvent
//
// Stateless.
#pragma once

#include <string>

namespace mgmtctl {

enum class EventKind { CREATED, MODIFIED, DELETED };

inline const wchar_t* EventClass(EventKind kind) {
    switch (kind) {
        case EventKind::CREATED:
            return L"__InstanceCreationEvent";
        case EventKind::MODIFIED:
            return L"__InstanceModificationEvent";
        default:
            return L"__InstanceDeletionEvent";
    }
}

// As people read it.
inline const char* KindText(EventKind kind) {
    switch (kind) {
        case EventKind::CREATED:
            return "created";
        case EventKind::MODIFIED:
            return "modified";
        default:
            return "deleted";
    }
}

}  // namespace mgmtctl
