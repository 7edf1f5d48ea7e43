#include "tools/mgmtctl/event_time.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace mgmtctl {
namespace {

constexpr std::int64_t TICKS_A_SECOND = 10'000'000;
constexpr std::int64_t SECONDS_FROM_1601_TO_1970 = 11'644'473'600;

struct LocalTime {
    std::tm parts{};
    unsigned microseconds = 0;
};

LocalTime LocalTimeOf(std::uint64_t ticks) {
    const auto whole = static_cast<std::int64_t>(ticks / TICKS_A_SECOND);
    LocalTime time;
    time.microseconds = static_cast<unsigned>(ticks % TICKS_A_SECOND / 10);
    const std::time_t seconds = whole - SECONDS_FROM_1601_TO_1970;
    localtime_r(&seconds, &time.parts);
    return time;
}

std::string Format(const std::tm& parts, const char* format) {
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &parts)};
}

}  // namespace

std::uint64_t TicksNow() {
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, TICKS_A_SECOND>>;
    const auto since_1970 =
        std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch());
    return static_cast<std::uint64_t>(since_1970.count() + SECONDS_FROM_1601_TO_1970 * TICKS_A_SECOND);
}

std::string ClockTime(std::uint64_t ticks) {
    const LocalTime time = LocalTimeOf(ticks);
    char fraction[16];
    std::snprintf(fraction, sizeof fraction, ".%03u", time.microseconds / 1000);
    return Format(time.parts, "%H:%M:%S") + fraction;
}

std::string IsoTime(std::uint64_t ticks) {
    const LocalTime time = LocalTimeOf(ticks);
    const long offset = time.parts.tm_gmtoff / 60;
    char rest[32];
    std::snprintf(rest, sizeof rest, ".%06u%c%02ld:%02ld", time.microseconds, offset < 0 ? '-' : '+',
                  std::labs(offset) / 60, std::labs(offset) % 60);
    return Format(time.parts, "%Y-%m-%dT%H:%M:%S") + rest;
}

}  // namespace mgmtctl
