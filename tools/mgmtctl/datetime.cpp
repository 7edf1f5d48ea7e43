#include "tools/mgmtctl/datetime.h"

#include <chrono>
#include <cstdio>
#include <regex>
#include <tuple>

namespace mgmtctl {
namespace {

// yyyymmddHHMMSS.mmmmmm+UUU and ddddddddHHMMSS.mmmmmm:000
constexpr std::size_t CIM_LENGTH = 25;
constexpr std::size_t POINT = 14;
constexpr std::size_t SIGN = 21;

int Number(std::string_view digits) {
    int number = 0;
    for (const char digit : digits)
        number = number * 10 + (digit >= '0' && digit <= '9' ? digit - '0' : 0);
    return number;
}

bool IsCimText(std::string_view text) {
    return text.size() == CIM_LENGTH && text[POINT] == '.' &&
           (text[SIGN] == '+' || text[SIGN] == '-' || text[SIGN] == ':');
}

// "Z", "+01:00" or "-0530" as sign and minutes; nothing for more minutes than CIM text has digits for.
std::optional<std::string> CimOffset(const std::string& offset) {
    if (offset.empty() || offset == "Z" || offset == "z") return "+000";
    const int minutes = Number(offset.substr(offset.size() - 2));
    const int all_minutes = Number(offset.substr(1, 2)) * 60 + minutes;
    if (minutes > 59 || all_minutes > 999) return std::nullopt;
    char text[16];
    std::snprintf(text, sizeof text, "%c%03d", offset.front(), all_minutes);
    return text;
}

bool IsDayOfCalendar(int year, int month, int day) {
    const std::chrono::year_month_day date{std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    return date.ok();
}

std::string ReadableInterval(std::string_view cim) {
    const int days = Number(cim.substr(0, 8));
    char clock[16];
    std::snprintf(clock, sizeof clock, "%.2s:%.2s:%.2s", &cim[8], &cim[10], &cim[12]);
    if (days == 0) return clock;
    return std::to_string(days) + (days == 1 ? " day " : " days ") + clock;
}

}  // namespace

std::optional<std::string> CimDatetime(const std::string& text) {
    if (IsCimText(text)) return text;

    static const std::regex ISO(
        R"((\d{4})-(\d{2})-(\d{2})(?:[T ](\d{2}):(\d{2})(?::(\d{2})(?:[.,](\d{1,6}))?)?([Zz]|[+-]\d{2}:?\d{2})?)?)");
    std::smatch parts;
    if (!std::regex_match(text, parts, ISO)) return std::nullopt;

    const auto two = [&](std::size_t part) {
        return parts[part].matched ? parts[part].str() : std::string("00");
    };
    if (!IsDayOfCalendar(Number(parts[1].str()), Number(parts[2].str()), Number(parts[3].str())) ||
        two(4) > "23" || two(5) > "59" || two(6) > "59") {
        return std::nullopt;
    }
    const std::optional<std::string> offset = CimOffset(parts[8].str());
    if (!offset) return std::nullopt;
    std::string fraction = parts[7].str();
    fraction.resize(6, '0');
    return parts[1].str() + parts[2].str() + parts[3].str() + two(4) + two(5) + two(6) + "." + fraction +
           *offset;
}

std::string ReadableDatetime(std::string_view cim) {
    if (!IsCimText(cim) || cim.find('*') != std::string_view::npos) return {};
    if (cim[SIGN] == ':') return ReadableInterval(cim);

    const int offset = Number(cim.substr(SIGN + 1));
    std::string text;
    for (const auto& [start, length, separator] :
         {std::tuple(0, 4, '-'), {4, 2, '-'}, {6, 2, ' '}, {8, 2, ':'}, {10, 2, ':'}, {12, 2, ' '}}) {
        text.append(cim.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(length)));
        text += separator;
    }
    char zone[16];
    std::snprintf(zone, sizeof zone, "%c%02d:%02d", cim[SIGN], offset / 60, offset % 60);
    return offset == 0 ? text + "UTC" : text + zone;
}

std::int64_t OrderOfDatetime(std::string_view cim) {
    if (!IsCimText(cim)) return 0;
    const std::int64_t seconds =
        (Number(cim.substr(8, 2)) * 60 + Number(cim.substr(10, 2))) * 60 + Number(cim.substr(12, 2));
    const int fraction = Number(cim.substr(POINT + 1, 6));
    std::int64_t days = Number(cim.substr(0, 8));
    std::int64_t minutes_ahead = 0;
    if (cim[SIGN] != ':') {
        const std::chrono::year_month_day date{
            std::chrono::year(Number(cim.substr(0, 4))),
            std::chrono::month(static_cast<unsigned>(Number(cim.substr(4, 2)))),
            std::chrono::day(static_cast<unsigned>(Number(cim.substr(6, 2))))};
        days = std::chrono::sys_days(date).time_since_epoch().count();
        minutes_ahead = Number(cim.substr(SIGN + 1)) * (cim[SIGN] == '-' ? -1 : 1);
    }
    return ((days * 24 * 60 - minutes_ahead) * 60 + seconds) * 1'000'000 + fraction;
}

}  // namespace mgmtctl
