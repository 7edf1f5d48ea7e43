// The input's lines are dates, times and intervals as programs and people write them; the first two are
// compared with each other.
#include <charconv>
#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "service/language/wql_comparison.h"
#include "service/model/value.h"
#include "tests/fuzz/expectations.h"
#include "tools/mgmtctl/datetime.h"
#include "utility/management/mgmt.h"

namespace {

using fuzz::Expect;

unsigned Digits(std::string_view text, size_t start, size_t length) {
    unsigned number = 0;
    std::from_chars(text.data() + start, text.data() + start + length, number);
    return number;
}

bool IsWhole(std::string_view text) {
    return service::IsCimDatetime(text) && text.find('*') == std::string_view::npos;
}

bool IsWholeDate(std::string_view text) {
    return IsWhole(text) && text[21] != ':';
}

bool IsDayOfCalendar(std::string_view date) {
    using namespace std::chrono;
    return year_month_day{year(static_cast<int>(Digits(date, 0, 4))), month(Digits(date, 4, 2)),
                          day(Digits(date, 6, 2))}
        .ok();
}

std::string Clock(const SYSTEMTIME& time) {
    char text[40];
    std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02d", time.wYear, time.wMonth, time.wDay,
                  time.wHour, time.wMinute, time.wSecond);
    return text;
}

void CheckWmiTime(const std::wstring& wide, std::string_view text) {
    SYSTEMTIME time = {};
    const bool is_read = MgmtConvertWMITimeToSystemTime(wide.c_str(), &time);
    Expect(is_read == (std::wstring_view(wide.c_str()).size() >= 16), "16 characters are a time", text);
    Expect(!IsWholeDate(text) || Clock(time) == text.substr(0, 14), "a date is read by position", text);
    FILETIME file = {};
    if (!MgmtConvertWMITimeToFileTime(wide.c_str(), &file)) return;
    SYSTEMTIME again = {};
    Expect(FileTimeToSystemTime(&file, &again) && Clock(time) == Clock(again), "file times are exact", text);
}

// What is written of a date reads as the same date.
void CheckDate(double date, std::string_view text) {
    wchar_t written[26];
    if (!CMgmtObjectBase::Date2DATETIME(date, written, 26)) return;
    const std::string cim(written, written + 25);
    Expect(IsWholeDate(cim) && IsDayOfCalendar(cim), "a date is written as one", cim);
    double read = 0;
    wchar_t again[26];
    Expect(CMgmtObjectBase::DATETIME2Date(written, &read) && CMgmtObjectBase::Date2DATETIME(read, again, 26),
           "a date written can be read", text);
    Expect(std::wstring_view(again) == written, "a date written reads as the same", text);
}

void CheckVariantDate(const std::wstring& wide, std::string_view text) {
    double date = 0;
    const bool is_date = CMgmtObjectBase::DATETIME2Date(wide.c_str(), &date);
    if (is_date) CheckDate(date, text);
    if (!IsWholeDate(text) || !IsDayOfCalendar(text) || Digits(text, 0, 4) < 100) return;
    wchar_t written[26];
    Expect(is_date && CMgmtObjectBase::Date2DATETIME(date, written, 26), "a day of the calendar is a date",
           text);
    Expect(std::string(written, written + 14) == text.substr(0, 14), "a date keeps its second", text);
}

void CheckToolText(const std::string& text) {
    const std::optional<std::string> cim = mgmtctl::CimDatetime(text);
    Expect(!IsWhole(text) || cim == text, "the tool takes the service's text as it is", text);
    if (!cim) return;
    Expect(*cim == text || IsWholeDate(*cim), "the tool writes the service's text", *cim);
    static_cast<void>(mgmtctl::OrderOfDatetime(*cim));
    const std::string readable = mgmtctl::ReadableDatetime(*cim);
    Expect(!IsWhole(*cim) || !readable.empty(), "a whole datetime is readable", *cim);
}

// The tool sorts as queries compare.
void CheckOrder(const std::string& a, const std::string& b) {
    if (!IsWhole(a) || !IsWhole(b) || (a[21] == ':') != (b[21] == ':')) return;
    const auto order = mgmtctl::OrderOfDatetime(a) <=> mgmtctl::OrderOfDatetime(b);
    const service::PropertyType type{service::CimType::kDatetime, false, 0, {}};
    service::WqlTerm term;
    term.path.names = {"At"};
    term.literal = service::WqlText{b};
    for (const auto& [comparison, expected] : {std::pair(service::WqlOperator::kLess, std::is_lt(order)),
                                               std::pair(service::WqlOperator::kEqual, std::is_eq(order))}) {
        term.comparison = comparison;
        const auto prepared = service::WqlComparison::Prepare(type, term, nullptr);
        Expect(prepared.ok() && prepared->Compare(std::string_view(a)) == service::TruthOf(expected),
               "the tool sorts as queries compare", a);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::string previous;
    for (size_t start = 0; start <= input.size();) {
        const size_t end = std::min(input.find('\n', start), input.size());
        const std::string text = input.substr(start, end - start);
        const std::wstring wide = service::ToWideLossy(text);
        CheckWmiTime(wide, text);
        CheckVariantDate(wide, text);
        CheckToolText(text);
        CheckOrder(previous, text);
        double date = 0;
        const auto read = std::from_chars(text.data(), text.data() + text.size(), date);
        if (read.ec == std::errc()) CheckDate(date, text);
        previous = text;
        start = end + 1;
    }
    return 0;
}
