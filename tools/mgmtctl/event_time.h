// When an event happened, in the time of the place where the tool runs.
//
//   ClockTime(ticks)   // "10:30:00.123"
//   IsoTime(ticks)     // "2026-11-22T10:30:00.123456+01:00"
//
// Ticks are 100 ns since 1601-01-01 00:00 UTC, as events carry them. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace mgmtctl {

std::uint64_t TicksNow();

std::string ClockTime(std::uint64_t ticks);
std::string IsoTime(std::uint64_t ticks);

}  // namespace mgmtctl
