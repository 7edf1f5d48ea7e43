// Dates, times and intervals: the CIM text that the service keeps, and what people write and read.
//
//   CimDatetime("2026-11-22T10:30:00+01:00")            // "20261122103000.000000+060"
//   ReadableDatetime("20261122103000.000000+060")       // "2026-11-22 10:30:00 +01:00"
//
// Stateless.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mgmtctl {

// CIM text as it is, ISO 8601 text converted: a date, or a date and a time with an optional fraction and
// offset; UTC where none is given. Nothing for text that is neither or names no day of the calendar.
std::optional<std::string> CimDatetime(const std::string& text);

// A short form for people; empty for text that has none, such as one with unknown fields.
std::string ReadableDatetime(std::string_view cim);

// A number that puts CIM texts into their order: the microseconds of an interval, or from some beginning to a
// date, whatever its offset. Unknown fields count as 0.
std::int64_t OrderOfDatetime(std::string_view cim);

}  // namespace mgmtctl
