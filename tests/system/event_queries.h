// The subscriptions whose events are checked against the change log, and what each of them is to get.
#pragma once

#include <memory>

#include "tests/system/event_recorder.h"
#include "tests/system/logged_change.h"

struct WatchedQuery {
    int type;
    const wchar_t* class_name;  // null for a query of its own
    const wchar_t* id_or_query;
    bool (*matches)(const LoggedChange&);

    std::unique_ptr<CMgmtEventWatcher> MakeWatcher() const {
        return class_name ? std::make_unique<CMgmtEventWatcher>(type, class_name, id_or_query, 1)
                          : std::make_unique<CMgmtEventWatcher>(id_or_query);
    }
};

inline constexpr WatchedQuery kWatchedQueries[] = {
    {0, L"Thing", nullptr,
     [](const LoggedChange& each) { return each.IsThing() && each.kind == LoggedChange::kModified; }},
    {1, L"thing", L"",
     [](const LoggedChange& each) { return each.IsThing() && each.kind == LoggedChange::kCreated; }},
    {2, L"SubThing", nullptr,
     [](const LoggedChange& each) {
         return each.of == LoggedChange::kSubThing && each.kind == LoggedChange::kDeleted;
     }},
    {0, L"Thing", L"T3",
     [](const LoggedChange& each) {
         return each.of == LoggedChange::kThing && each.digit == 3 && each.kind == LoggedChange::kModified;
     }},
    {2, L"Other", L"o1",
     [](const LoggedChange& each) {
         return each.of == LoggedChange::kOther && each.digit == 1 && each.kind == LoggedChange::kDeleted;
     }},
    {0, nullptr, L"SELECT * FROM __InstanceOperationEvent", [](const LoggedChange&) { return true; }},
    {0, nullptr,
     L"SELECT * FROM __InstanceModificationEvent WITHIN 2 WHERE TargetInstance ISA 'Thing' AND "
     L"TargetInstance.Days > 50 AND PreviousInstance.Days <= 50",
     [](const LoggedChange& each) {
         return each.IsThing() && each.kind == LoggedChange::kModified && each.days > 50 &&
                each.days_before <= 50;
     }},
    {0, nullptr,
     L"SELECT * FROM __InstanceOperationEvent WITHIN 0.5 WHERE (TargetInstance ISA 'Other' OR "
     L"TargetInstance ISA 'SubThing') AND NOT TargetInstance.INSTANCE_ID LIKE '_[0-4]'",
     [](const LoggedChange& each) { return each.of != LoggedChange::kThing && each.digit > 4; }},
    {0, nullptr,
     L"SELECT * FROM __InstanceOperationEvent WITHIN 60 WHERE TargetInstance ISA 'Thing' AND "
     L"TargetInstance.INSTANCE_ID = 's7'",
     [](const LoggedChange& each) { return each.of == LoggedChange::kSubThing && each.digit == 7; }},
    {0, nullptr,
     L"SELECT * FROM __InstanceDeletionEvent WHERE TargetInstance.__CLASS = 'Thing' AND "
     L"(TargetInstance.Days < 10 OR TargetInstance.Days >= 90)",
     [](const LoggedChange& each) {
         return each.of == LoggedChange::kThing && each.kind == LoggedChange::kDeleted &&
                (each.days < 10 || each.days >= 90);
     }},
};
