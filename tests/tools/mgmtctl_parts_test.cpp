// The parts of mgmtctl that need no service: text, dates, order, tables and the command line.
#include <clocale>
#include <cmath>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/mgmtctl/arguments.h"
#include "tools/mgmtctl/datetime.h"
#include "tools/mgmtctl/event_query.h"
#include "tools/mgmtctl/event_time.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/import_progress.h"
#include "tools/mgmtctl/query_text.h"
#include "tools/mgmtctl/sort_key.h"
#include "tools/mgmtctl/table.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

TEST(Text, RoundTripsWhatIsWellFormedAndRefusesTheRest) {
    for (const std::string text : {"", "a", "\x7f", "\u0080", "é", "\u07ff", "\u0800", "€", "\uffff",
                                   "\U00010000", "😀", "\U0010ffff"}) {
        const auto wide = TryWide(text);
        ASSERT_TRUE(wide) << text;
        EXPECT_EQ(Utf8(*wide), text);
    }
    EXPECT_EQ(TryWide("a€😀")->size(), sizeof(wchar_t) == 2 ? 4u : 3u);
    for (const std::string text :
         {"\x80", "\xc0\x80", "\xc1\xbf", "\xc3", "\xe0\x80\x80", "\xe0\x9f\xbf", "\xed\xa0\x80",
          "\xed\xbf\xbf", "\xe2\x82", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff",
          "ok\xc3(", "\xe2\x28\xa1"}) {
        EXPECT_FALSE(TryWide(text)) << testing::PrintToString(text);
        EXPECT_THROW(Wide(text), UsageFailure);
    }
}

TEST(Text, ShowsNothingThatATerminalWouldObey) {
    EXPECT_EQ(Printable("plain ä 😀"), "plain ä 😀");
    EXPECT_EQ(Printable("a\nb\tc\rd\x1b[31m\x7f"), "a\\nb\\tc\\rd\\u001b[31m\\u007f");
    EXPECT_EQ(Printable("\u202e\u009b"), "\\u202e\\u009b");
    EXPECT_EQ(Printable(std::string("a\0b", 3)), "a\\u0000b");
    std::setlocale(LC_CTYPE, "C.UTF-8");
    EXPECT_EQ(DisplayWidth("aäü漢字"), 7u);
}

TEST(EventTime, IsThatOfThePlace) {
    constexpr std::uint64_t EPOCH = 116'444'736'000'000'000;
    const std::string before = getenv("TZ") != nullptr ? getenv("TZ") : "";
    const auto move_to = [](const char* zone) {
        *zone ? setenv("TZ", zone, 1) : unsetenv("TZ");
        tzset();
    };
    move_to("XST-05:30");
    EXPECT_EQ(IsoTime(EPOCH + 12'345'678), "1970-01-01T05:30:01.234567+05:30");
    EXPECT_EQ(ClockTime(EPOCH + 9'999'999), "05:30:00.999");
    move_to("XST03:30");
    EXPECT_EQ(IsoTime(EPOCH - 1), "1969-12-31T20:29:59.999999-03:30");
    EXPECT_THAT(IsoTime(TicksNow()), testing::StartsWith("20"));
    move_to(before.c_str());
}

TEST(EventQuery, AsksForWhatIsWatchedAndNothingElse) {
    using enum EventKind;
    const std::wstring every =
        L"SELECT * FROM __InstanceOperationEvent WITHIN 1 WHERE TargetInstance ISA \"Policy\"";
    EXPECT_EQ(EventQuery(L"Policy", L"", {CREATED, MODIFIED, DELETED}), every);
    EXPECT_EQ(EventQuery(L"Policy", L"a\"b\\", {}),
              every + L" AND TargetInstance.INSTANCE_ID = \"a\\\"b\\\\\"");
    EXPECT_EQ(EventQuery(L"Policy", L"", {CREATED, DELETED}),
              every + L" AND __CLASS <> \"__InstanceModificationEvent\"");
}

TEST(Datetime, TakesIsoTextAndKeepsTheOffset) {
    EXPECT_EQ(CimDatetime("2026-11-22"), "20261122000000.000000+000");
    EXPECT_EQ(CimDatetime("2026-11-22T10:30"), "20261122103000.000000+000");
    EXPECT_EQ(CimDatetime("2026-11-22 10:30:07"), "20261122103007.000000+000");
    EXPECT_EQ(CimDatetime("2026-11-22T10:30:00Z"), "20261122103000.000000+000");
    EXPECT_EQ(CimDatetime("2026-11-22T10:30:00.25+01:00"), "20261122103000.250000+060");
    EXPECT_EQ(CimDatetime("2026-11-22T10:30:00,123456-0530"), "20261122103000.123456-330");
    EXPECT_EQ(CimDatetime("2024-02-29"), "20240229000000.000000+000");
    EXPECT_EQ(CimDatetime("2026-11-22T10:30:00+14:00"), "20261122103000.000000+840");
    for (const std::string text :
         {"20261122103000.000000+060", "00000001120000.000000:000", "20261224******.******+060"})
        EXPECT_EQ(CimDatetime(text), text) << "CIM's own form stays as it is";
}

TEST(Datetime, RefusesWhatIsNoDate) {
    for (const std::string text :
         {"", "x", "2026", "2026-13-01", "2026-00-01", "2026-02-30", "2025-02-29", "2026-11-22T24:00",
          "2026-11-22T10:60", "2026-11-22T10:30:60", "2026-11-22T10", "2026-11-22T10:30:00.1234567",
          "2026-11-22T10:30:00+16:40", "2026-11-22T10:30:00+01:60", "2026-11-22+01:00", "20261122"}) {
        EXPECT_FALSE(CimDatetime(text)) << text;
    }
}

TEST(Datetime, HasAReadableForm) {
    EXPECT_EQ(ReadableDatetime("20261122103000.000000+000"), "2026-11-22 10:30:00 UTC");
    EXPECT_EQ(ReadableDatetime("20261122103000.000000-330"), "2026-11-22 10:30:00 -05:30");
    EXPECT_EQ(ReadableDatetime("00000001120000.000000:000"), "1 day 12:00:00");
    EXPECT_EQ(ReadableDatetime("00000000000500.000000:000"), "00:05:00");
    EXPECT_EQ(ReadableDatetime("20261224******.******+060"), "");
    EXPECT_EQ(ReadableDatetime("soon"), "");
}

TEST(Datetime, IsOrderedByTheMomentItNames) {
    // Each before the next one: dates, and intervals.
    const std::vector<const char*> orders[] = {
        {"19991231235959.999999+000", "20260101000000.000000+060", "20260101000000.000000+000",
         "20251231233000.000000-060", "20260101003000.000001+000", "20261224******.******+060"},
        {"00000000000000.000001:000", "00000000235959.000000:000", "00000001000000.000000:000",
         "99999999235959.999999:000"}};
    for (const auto& order : orders) {
        for (std::size_t i = 1; i < order.size(); ++i)
            EXPECT_LT(OrderOfDatetime(order[i - 1]), OrderOfDatetime(order[i])) << order[i];
    }
}

TEST(SortKeys, AreOrderedByWhatTheValuesMean) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const auto key = [](CIMTYPE type, const _variant_t& value) { return SortKey(type, value); };
    // Each before the next one.
    const std::vector<SortKey> orders[] = {
        {SortKey(), key(CIM_SINT32, -5L), key(CIM_SINT32, 3L)},
        {key(CIM_UINT32, 1L), key(CIM_UINT32, -1L)},  // 4294967295 comes as a VT_I4 of -1
        {key(CIM_UINT64, L"9"), key(CIM_UINT64, L"18446744073709551614"),
         key(CIM_UINT64, L"18446744073709551615")},
        {key(CIM_SINT64, L"-9223372036854775808"), key(CIM_SINT64, L"-9223372036854775807")},
        {key(CIM_REAL64, std::nan("")), key(CIM_REAL64, -HUGE_VAL)},
        {key(CIM_BOOLEAN, false), key(CIM_BOOLEAN, true)},
        {key(CIM_STRING, L"anna"), key(CIM_STRING, L"Berta"), key(CIM_STRING, L"ärger"),
         key(CIM_STRING, L"Ästhet")}};
    for (const auto& order : orders) {
        for (std::size_t i = 1; i < order.size(); ++i)
            EXPECT_TRUE(order[i - 1] < order[i] && !(order[i] < order[i - 1]));
    }
    EXPECT_FALSE(key(CIM_REAL64, std::nan("")) < key(CIM_REAL64, std::nan("")));
    EXPECT_FALSE(key(CIM_STRING, L"A") < key(CIM_STRING, L"a"));
}

TEST(QueryText, TellsWhatIsSelected) {
    const auto names = [](const char* query) { return ReadSelect(query).properties; };
    EXPECT_EQ(ReadSelect("select\t*from\nPolicy").class_name, "Policy");
    EXPECT_EQ(names("SELECT * FROM Policy"), std::vector<std::string>());
    EXPECT_EQ(names("SELECT A ,B,C FROM P WHERE D = 'FROM'"), (std::vector<std::string>{"A", "B", "C"}));
    EXPECT_EQ(ReadSelect("SELECT From,A FROM P").class_name, "P");
    EXPECT_EQ(names("SELECT A, from FROM P"), (std::vector<std::string>{"A", "from"}));
    for (const char* query : {"", "SELECT", "SELECT A", "SELECT A FROM"})
        EXPECT_EQ(ReadSelect(query).class_name, "") << query;
}

TEST(ImportProgress, SaysWhatIsDone) {
    EXPECT_EQ(ProgressText(false, 12'000, 1'000'001), "imported 12,000 of 1,000,001 declarations");
    EXPECT_EQ(ProgressText(true, 5, 5), "checked 5 of 5 declarations");
    EXPECT_EQ(ProgressText(false, 999, 999), "storing 999 declarations ...");
}

Arguments Read(std::vector<const char*> words) {
    words.insert(words.begin(), "mgmtctl");
    return ReadArguments(static_cast<int>(words.size()), words.data());
}

TEST(CommandLine, ReadsNamespacesInEverySpelling) {
    for (const char* text : {"root\\A", "root/A", "\\\\.\\root\\A", "//./root/A"})
        EXPECT_EQ(ReadNamespacePath(text), L"\\\\.\\root\\A") << text;
    EXPECT_EQ(Read({"classes"}).namespace_path, L"\\\\.\\root\\Vantrel\\Halvenor");
    EXPECT_EQ(Read({"-n", "root/A", "classes"}).namespace_path, L"\\\\.\\root\\A");
    EXPECT_EQ(Read({"classes", "--namespace=root/A"}).namespace_path, L"\\\\.\\root\\A");
}

TEST(CommandLine, TakesAnIdAsItStands) {
    for (const char* id : {"get", "import", "[a]", "[a,b]", "{}", "%%", "a b", "-5", "x=y", "@f", "null"}) {
        const Arguments get = Read({"get", "C", id, "--json"});
        EXPECT_EQ(get.command, Command::GET);
        EXPECT_EQ(get.id, id);
        EXPECT_TRUE(get.is_json);
        EXPECT_EQ(Read({"delete", "C", "--", id}).id, id);
        EXPECT_EQ(Read({"set", "C", id, "A=1"}).id, id);
    }
    for (const char* id : {"--json", "-x", "--", "++"})
        EXPECT_EQ(Read({"get", "C", "--", id}).id, id);
}

TEST(CommandLine, RefusesNonsense) {
    std::istringstream lines(
        "|bogus|get|get C i more|describe|set C|set C i|set C i A|set C i =1|import|get --bogus C i|"
        "namespaces x|list|list C --limit -1|list C --limit ten|list C --sort A:up|list C --sort :desc|"
        "list C --properties A,,B|list C --properties A,|list C --deep --shallow|query|query Q --where A|"
        "count C --sort A|create C|create C i A|get C \xff|-n \xc0\x80 classes|get C EMPTY|get EMPTY|"
        "describe EMPTY|delete C EMPTY|list EMPTY|query EMPTY|xml C EMPTY|-n EMPTY classes|-n root/ classes");
    for (std::string line; std::getline(lines, line, '|');) {
        std::istringstream text(line);
        const std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
        std::vector<const char*> given;
        for (const std::string& word : words)
            given.push_back(word == "EMPTY" ? "" : word.c_str());
        EXPECT_THROW(Read(given), UsageFailure) << line;
    }
}

class Tables : public testing::Test {
 protected:
    void SetUp() override { std::setlocale(LC_CTYPE, "C.UTF-8"); }

    static std::string Printed(Table& table) {
        std::ostringstream out;
        table.Print(out);
        return out.str();
    }
};

TEST_F(Tables, AreAsWideAsWhatIsInThem) {
    Table table({"Name", "N", "Text"});
    table.AlignRight(1);
    table.Add({"漢字", "5", "a"});
    table.Add({"", "1234", ""});
    table.Add({"x\ny", "", "b"});
    EXPECT_EQ(Printed(table),
              "Name     N  Text\n----     -  ----\n漢字     5  a\n      1234\nx\\ny        b\n");
    EXPECT_EQ(Printed(table), "");
    // The widths stay; what is too wide moves its neighbours as far as it must, and nothing is lost.
    table.Add({"a", "123456", "c"});
    table.Add({"aaaaaa", "1", "c"});
    table.Add({"a", "1", "c"});
    EXPECT_EQ(Printed(table), "a     123456  c\naaaaaa   1  c\na        1  c\n");
}

TEST_F(Tables, AreCutToATerminal) {
    Table table({"Name", "Text"});
    table.CutToFit(30);
    table.Add({"n", std::string(100, 'x')});
    table.Add({std::string(40, 'y'), "z"});
    EXPECT_EQ(Printed(table),
              "Name              Text\n----              ----\n"
              "n                 xxxxxxxxxxx…\nyyyyyyyyyyyyyyy…  z\n");
    EXPECT_EQ(Cut("abc", 3), "abc");
    EXPECT_EQ(Cut("abcd", 3), "ab…");
    EXPECT_EQ(Cut("äöüß", 3), "äö…");
    EXPECT_EQ(Cut("漢字漢", 5), "漢字…");
    EXPECT_EQ(Cut("漢字漢", 4), "漢…");
    EXPECT_EQ(Cut("ab", 1), "…");
}

TEST_F(Tables, GroupTheDigitsOfLargeNumbers) {
    EXPECT_EQ(Grouped(999), "999");
    EXPECT_EQ(Grouped(1000), "1,000");
    EXPECT_EQ(Grouped(18446744073709551615ULL), "18,446,744,073,709,551,615");
}

}  // namespace
}  // namespace mgmtctl
