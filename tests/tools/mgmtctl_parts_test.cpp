// The parts of mgmtctl that need no service: text, dates, paths and the command line.
#include <clocale>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/mgmtctl/arguments.h"
#include "tools/mgmtctl/datetime.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/instance_path.h"
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
