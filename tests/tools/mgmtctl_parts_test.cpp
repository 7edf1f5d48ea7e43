// The parts of mgmtctl that need no service: text, dates, order, paths and the command line.
#include <clocale>
#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/mgmtctl/arguments.h"
#include "tools/mgmtctl/datetime.h"
#include "tools/mgmtctl/event_query.h"
#include "tools/mgmtctl/event_time.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/import_progress.h"
#include "tools/mgmtctl/instance_path.h"
#include "tools/mgmtctl/query_text.h"
#include "tools/mgmtctl/sort_key.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

TEST(Text, RoundTripsEveryLengthOfSequence) {
    for (const std::string text : {"", "a", "\x7f", "\u0080", "é", "\u07ff", "\u0800", "€", "\uffff",
                                   "\U00010000", "😀", "\U0010ffff"}) {
        const auto wide = TryWide(text);
        ASSERT_TRUE(wide) << text;
        EXPECT_EQ(Utf8(*wide), text);
    }
    EXPECT_EQ(TryWide("a€😀")->size(), sizeof(wchar_t) == 2 ? 4u : 3u);
}

TEST(Text, RefusesWhatIsNotWellFormed) {
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
}

TEST(Text, MeasuresColumnsNotBytes) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    EXPECT_EQ(DisplayWidth("abc"), 3u);
    EXPECT_EQ(DisplayWidth("äöü"), 3u);
    EXPECT_EQ(DisplayWidth("漢字"), 4u);
}

TEST(EventTime, IsThatOfThePlace) {
    constexpr std::uint64_t EPOCH = 116'444'736'000'000'000;
    const std::string before = getenv("TZ") != nullptr ? getenv("TZ") : "";
    setenv("TZ", "XST-05:30", 1);
    tzset();
    EXPECT_EQ(IsoTime(EPOCH + 12'345'678), "1970-01-01T05:30:01.234567+05:30");
    EXPECT_EQ(ClockTime(EPOCH + 9'999'999), "05:30:00.999");
    setenv("TZ", "XST03:30", 1);
    tzset();
    EXPECT_EQ(IsoTime(EPOCH - 1), "1969-12-31T20:29:59.999999-03:30");
    EXPECT_THAT(IsoTime(TicksNow()), testing::StartsWith("20"));
    before.empty() ? unsetenv("TZ") : setenv("TZ", before.c_str(), 1);
    tzset();
}

TEST(EventQuery, AsksForWhatIsWatchedAndNothingElse) {
    using enum EventKind;
    const std::wstring every =
        L"SELECT * FROM __InstanceOperationEvent WITHIN 1 WHERE TargetInstance ISA \"Policy\"";
    EXPECT_EQ(EventQuery(L"Policy", L"", {}), every);
    EXPECT_EQ(EventQuery(L"Policy", L"", {CREATED, MODIFIED, DELETED}), every);
    EXPECT_EQ(EventQuery(L"Policy", L"a\"b\\", {}),
              every + L" AND TargetInstance.INSTANCE_ID = \"a\\\"b\\\\\"");
    EXPECT_EQ(EventQuery(L"Policy", L"", {CREATED, DELETED}),
              every + L" AND __CLASS <> \"__InstanceModificationEvent\"");
    EXPECT_EQ(EventQuery(L"Policy", L"", {DELETED}),
              L"SELECT * FROM __InstanceDeletionEvent WITHIN 1 WHERE TargetInstance ISA \"Policy\"");
}

TEST(Datetime, TakesIsoTextAndKeepsTheOffset) {
    const std::pair<const char*, const char*> cases[] = {
        {"2026-11-22", "20261122000000.000000+000"},
        {"2026-11-22T10:30", "20261122103000.000000+000"},
        {"2026-11-22 10:30:07", "20261122103007.000000+000"},
        {"2026-11-22T10:30:00Z", "20261122103000.000000+000"},
        {"2026-11-22T10:30:00.25+01:00", "20261122103000.250000+060"},
        {"2026-11-22T10:30:00,123456-0530", "20261122103000.123456-330"},
        {"2024-02-29", "20240229000000.000000+000"},
        {"2026-11-22T10:30:00+14:00", "20261122103000.000000+840"},
    };
    for (const auto& [iso, cim] : cases)
        EXPECT_EQ(CimDatetime(iso), cim) << iso;
}

TEST(Datetime, TakesCimTextAsItIs) {
    for (const std::string text :
         {"20261122103000.000000+060", "00000001120000.000000:000", "20261224******.******+060"}) {
        EXPECT_EQ(CimDatetime(text), text);
    }
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
    // Each before the next one.
    const char* const dates[] = {"19991231235959.999999+000", "20260101000000.000000+060",
                                 "20260101000000.000000+000", "20251231233000.000000-060",
                                 "20260101003000.000001+000", "20261224******.******+060"};
    const char* const intervals[] = {"00000000000000.000001:000", "00000000235959.000000:000",
                                     "00000001000000.000000:000", "99999999235959.999999:000"};
    for (std::size_t i = 1; i < std::size(dates); ++i)
        EXPECT_LT(OrderOfDatetime(dates[i - 1]), OrderOfDatetime(dates[i])) << dates[i];
    for (std::size_t i = 1; i < std::size(intervals); ++i)
        EXPECT_LT(OrderOfDatetime(intervals[i - 1]), OrderOfDatetime(intervals[i])) << intervals[i];
}

SortKey Key(CIMTYPE type, const _variant_t& value) {
    return {type, value};
}

TEST(SortKeys, AreOrderedByWhatTheValuesMean) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const SortKey null = Key(CIM_SINT64, _variant_t());
    EXPECT_LT(null, Key(CIM_SINT32, -5L));
    EXPECT_FALSE(null < SortKey());
    EXPECT_LT(Key(CIM_SINT32, -5L), Key(CIM_SINT32, 3L));
    EXPECT_LT(Key(CIM_UINT64, L"9"), Key(CIM_UINT64, L"10"));
    EXPECT_LT(Key(CIM_UINT64, L"18446744073709551614"), Key(CIM_UINT64, L"18446744073709551615"));
    EXPECT_LT(Key(CIM_SINT64, L"-9223372036854775808"), Key(CIM_SINT64, L"-9223372036854775807"));
    EXPECT_LT(Key(CIM_UINT32, 1L), Key(CIM_UINT32, -1L)) << "4294967295 comes as a VT_I4 of -1";
    EXPECT_LT(Key(CIM_REAL64, std::nan("")), Key(CIM_REAL64, -HUGE_VAL));
    EXPECT_FALSE(Key(CIM_REAL64, std::nan("")) < Key(CIM_REAL64, std::nan("")));
    EXPECT_LT(Key(CIM_BOOLEAN, false), Key(CIM_BOOLEAN, true));
    EXPECT_LT(Key(CIM_STRING, L"anna"), Key(CIM_STRING, L"Berta"));
    EXPECT_LT(Key(CIM_STRING, L"ärger"), Key(CIM_STRING, L"Ästhet"));
    EXPECT_FALSE(Key(CIM_STRING, L"A") < Key(CIM_STRING, L"a"));
    EXPECT_LT(Key(CIM_DATETIME, L"20260101000000.000000+060"),
              Key(CIM_DATETIME, L"20260101000000.000000+000"));
    EXPECT_FALSE(CanSortBy(CIM_SINT32 | CIM_FLAG_ARRAY));
    EXPECT_FALSE(CanSortBy(CIM_OBJECT));
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
    EXPECT_EQ(ProgressText(false, 0, 0), "reading the files ...");
    EXPECT_EQ(ProgressText(false, 12'000, 1'000'001), "imported 12,000 of 1,000,001 declarations");
    EXPECT_EQ(ProgressText(true, 5, 5), "checked 5 of 5 declarations");
    EXPECT_EQ(ProgressText(false, 999, 999), "storing 999 declarations ...");
}

TEST(InstancePath, EscapesWhatWouldEndTheId) {
    EXPECT_EQ(InstancePath(L"C", L"42"), L"C.INSTANCE_ID=\"42\"");
    EXPECT_EQ(InstancePath(L"C", L"a\"b\\"), L"C.INSTANCE_ID=\"a\\\"b\\\\\"");
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
    EXPECT_THROW(Read({"-n", "", "classes"}), UsageFailure);
    EXPECT_THROW(Read({"-n", "root/", "classes"}), UsageFailure);
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

TEST(CommandLine, SplitsAssignmentsAtTheFirstEqualsSign) {
    const Arguments set = Read({"set", "C", "i", "A=", "B=x=y", "C=[1,2]", "D=-5", "--create"});
    ASSERT_EQ(set.assignments.size(), 4u);
    EXPECT_EQ(set.assignments[0].value, "");
    EXPECT_EQ(set.assignments[1].name, "B");
    EXPECT_EQ(set.assignments[1].value, "x=y");
    EXPECT_EQ(set.assignments[2].value, "[1,2]");
    EXPECT_EQ(set.assignments[3].value, "-5");
    EXPECT_TRUE(set.is_create);
}

TEST(CommandLine, ReadsHowToList) {
    const Arguments list = Read({"list", "C", "--where", "A > 1", "--properties", "A,B", "--sort=A:desc",
                                 "--limit", "10", "--shallow", "--full"});
    EXPECT_EQ(list.class_name, "C");
    EXPECT_EQ(list.where, "A > 1");
    EXPECT_EQ(list.listing.properties, (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(list.listing.sort, "A");
    EXPECT_TRUE(list.listing.is_descending);
    EXPECT_EQ(list.listing.limit, 10u);
    EXPECT_TRUE(list.is_shallow);
    EXPECT_TRUE(list.listing.is_full);
    const Arguments plain = Read({"list", "C", "--deep"});
    EXPECT_FALSE(plain.is_shallow);
    EXPECT_FALSE(plain.listing.limit);
    EXPECT_FALSE(Read({"list", "C", "--sort", "A:asc"}).listing.is_descending);
    EXPECT_EQ(Read({"query", "SELECT * FROM C"}).query, "SELECT * FROM C");
    EXPECT_EQ(Read({"xml", "C"}).path, "C");
    EXPECT_EQ(Read({"xml", "C", "i"}).id, "i");
    EXPECT_EQ(Read({"create", "C", "i", "A=1"}).assignments.size(), 1u);
}

TEST(CommandLine, RefusesNonsense) {
    const std::vector<std::vector<const char*>> cases = {{},
                                                         {"bogus"},
                                                         {"get"},
                                                         {"get", "C", "i", "more"},
                                                         {"get", "C", ""},
                                                         {"get", ""},
                                                         {"describe"},
                                                         {"describe", ""},
                                                         {"set", "C"},
                                                         {"set", "C", "i"},
                                                         {"set", "C", "i", "A"},
                                                         {"set", "C", "i", "=1"},
                                                         {"delete", "C"},
                                                         {"delete", "C", ""},
                                                         {"import"},
                                                         {"get", "--bogus", "C", "i"},
                                                         {"namespaces", "x"},
                                                         {"list"},
                                                         {"list", ""},
                                                         {"list", "C", "--limit", "-1"},
                                                         {"list", "C", "--limit", "ten"},
                                                         {"list", "C", "--sort", "A:up"},
                                                         {"list", "C", "--sort", ":desc"},
                                                         {"list", "C", "--properties", "A,,B"},
                                                         {"list", "C", "--properties", "A,"},
                                                         {"list", "C", "--deep", "--shallow"},
                                                         {"query"},
                                                         {"query", ""},
                                                         {"query", "SELECT * FROM C", "--where", "A = 1"},
                                                         {"count", "C", "--sort", "A"},
                                                         {"create", "C"},
                                                         {"create", "C", "i", "A"},
                                                         {"xml", "C", ""},
                                                         {"get", "C", "\xff"},
                                                         {"-n", "\xc0\x80", "classes"}};
    for (const auto& words : cases)
        EXPECT_THROW(Read(words), UsageFailure) << testing::PrintToString(words);
}

TEST(CommandLine, HelpsWithExamples) {
    for (const auto& words : {std::vector<const char*>{"--help"}, {"set", "--help"}, {"get", "-h"}}) {
        try {
            Read(words);
            ADD_FAILURE() << "no help";
        } catch (const HelpWanted& help) {
            EXPECT_THAT(help.text, testing::HasSubstr("Usage: mgmtctl"));
        }
    }
}

}  // namespace
}  // namespace mgmtctl
