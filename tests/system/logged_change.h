// One entry of the change log, as event_log writes it down for a test.
#pragma once

#include <cstdint>

struct LoggedChange {
    enum Kind : uint32_t { kCreated = 1, kModified = 2, kDeleted = 3 };
    enum Class : uint32_t { kThing = 't', kSubThing = 's', kOther = 'o' };  // how its ids begin

    uint64_t number;
    Kind kind;
    Class of;
    uint32_t digit;  // how its id goes on
    uint32_t n, days;
    uint32_t days_before;

    bool IsThing() const { return of != kOther; }
};
