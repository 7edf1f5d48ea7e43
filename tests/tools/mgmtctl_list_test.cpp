// mgmtctl list, query and count: which instances and columns they show, in which order, and how.
#include <sstream>

#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* SCHEMA = R"mof(
class Window { uint8 Hour; string Days[]; };
class Thing {
    string Name; [key] string INSTANCE_ID; sint64 N; real64 R; datetime At; boolean Flag; string Texts[];
    uint32 Counts[]; Window Open; object Objects[];
};
class Special : Thing { string Extra; };
class Empty { [key] string INSTANCE_ID; };
instance of Thing { INSTANCE_ID = "b"; Name = "Berta"; N = 9; R = 0.5; At = "20260101000000.000000+060"; Flag = TRUE;
    Texts = {"x", NULL, ""}; Counts = {}; Open = instance of Window { Hour = 3; Days = {"Mon"}; }; };
instance of Thing { INSTANCE_ID = "a"; Name = "anna"; N = 10; At = "20260101000000.000000+000"; Counts = {7};
    Objects = {instance of Window { Hour = 1; }, instance of Window { }}; };
instance of Thing { INSTANCE_ID = "c"; Name = ""; N = -9223372036854775808; At = "20251231235959.250000+000"; };
instance of Special { INSTANCE_ID = "s"; Name = "null"; N = 9223372036854775807; Extra = "more"; };
instance of Special { INSTANCE_ID = "t"; Extra = "line\nend"; };
)mof";

class Listing : public ToolTest {
 protected:
    void SetUp() override { Import(SCHEMA); }

    std::vector<std::string> Lines(const std::vector<std::string>& arguments) const {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        EXPECT_EQ(outcome.err, "");
        std::vector<std::string> lines;
        std::istringstream text(outcome.out);
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }

    std::vector<json> Objects(std::vector<std::string> arguments) const {
        arguments.emplace_back("--json");
        std::vector<json> objects;
        for (const std::string& line : Lines(arguments))
            objects.push_back(json::parse(line));
        return objects;
    }

    // The instances' ids, in the order of the listing.
    std::string Ids(const std::vector<std::string>& arguments) const {
        std::string ids;
        for (const json& object : Objects(arguments))
            ids += object["INSTANCE_ID"].get<std::string>();
        return ids;
    }
};

TEST_F(Listing, ShowsTheInstancesOfAClassAndOfThoseBelow) {
    EXPECT_EQ(Ids({"list", "Thing"}), "abcst");
    EXPECT_EQ(Ids({"list", "thing", "--deep", "--limit", "4"}), "abcs");
    EXPECT_EQ(Ids({"list", "Thing", "--shallow"}), "abc");
    EXPECT_EQ(Ids({"list", "Special"}), "st");
    EXPECT_THAT(Objects({"list", "Thing", "--limit", "0"}), IsEmpty());
    EXPECT_THAT(Objects({"list", "Empty"}), IsEmpty());
    EXPECT_THAT(Lines({"list", "Empty"}), ElementsAre("INSTANCE_ID", "-----------"));
    EXPECT_EQ(Run({"count", "Thing"}).out, "5\n");
    EXPECT_EQ(Run({"count", "Thing", "--shallow"}).out, "3\n");
    EXPECT_EQ(Run({"count", "Empty"}).out, "0\n");
    EXPECT_THAT(Run({"list", "__Namespace", "-n", "root"}).out, HasSubstr("Vantrel"));
    ExpectRefused({"count", "Thing", "--where", ""}, 2, "the condition must not be empty");
    ExpectRefused({"list", "Nope"}, 1, "there is no class Nope");
    ExpectRefused({"-n", "root/Nowhere", "list", "Thing"}, 1, "root\\Nowhere");
}

TEST_F(Listing, ShowsThoseForWhichAConditionHolds) {
    EXPECT_EQ(Ids({"list", "Thing", "--where", "N > 9"}), "as");
    EXPECT_EQ(Ids({"list", "Thing", "--where", "Name LIKE '%a'"}), "ab");
    EXPECT_EQ(Ids({"list", "Thing", "--where", "R IS NULL", "--shallow"}), "ac");
    EXPECT_EQ(Run({"count", "Thing", "--where", "R IS NULL", "--shallow"}).out, "2\n");
    EXPECT_EQ(Run({"count", "Thing", "--where", "INSTANCE_ID = 'S'"}).out, "1\n");
    ExpectRefused({"list", "Thing", "--where", "N >"}, 1, "SELECT * FROM Thing WHERE N >");
    ExpectRefused({"count", "Thing", "--where", "Nope = 1"}, 1, "no property Nope");
}

TEST_F(Listing, ShowsTheColumnsAskedFor) {
    EXPECT_THAT(Lines({"list", "Thing"})[0], StartsWith("INSTANCE_ID  __CLASS  At"));
    EXPECT_THAT(Lines({"list", "Special"})[0], StartsWith("INSTANCE_ID  At"));
    EXPECT_EQ(
        Run({"list", "Thing", "--properties", "n,INSTANCE_ID,__CLASS", "--where", "Name <> 'Berta'"}).out,
        "                   N  INSTANCE_ID  __CLASS\n                   -  -----------  -------\n"
        "                  10  a            Thing\n-9223372036854775808  c            Thing\n"
        " 9223372036854775807  s            Special\n");
    EXPECT_EQ(Objects({"list", "Thing", "--properties", "R,N", "--limit", "1"})[0].dump(),
              R"({"N":10,"R":null,"__CLASS":"Thing","__RELPATH":"Thing.INSTANCE_ID=\"a\"","__UNSET":["R"]})");
    ExpectRefused({"list", "Thing", "--properties", "Nope"}, 1,
                  "At, Counts, Flag, INSTANCE_ID, N, Name, Objects");
    ExpectRefused({"list", "Thing", "--properties", "N,n"}, 2, "given twice");
}

TEST_F(Listing, SortsByWhatTheValuesMean) {
    EXPECT_EQ(Ids({"list", "Thing", "--sort", "N"}), "tcbas");
    EXPECT_EQ(Ids({"list", "Thing", "--sort", "n:desc"}), "sabct");
    EXPECT_EQ(Ids({"list", "Thing", "--sort", "Name"}), "tcabs");
    EXPECT_EQ(Ids({"list", "Thing", "--sort", "At"}), "stbca");
    EXPECT_EQ(Ids({"list", "Thing", "--sort", "N:desc", "--limit", "2"}), "sa");
    // Equals stay in the store's order.
    EXPECT_EQ(Ids({"list", "Thing", "--sort", "R"}), "acstb");
    EXPECT_EQ(Ids({"list", "Thing", "--sort", "R:desc"}), "bacst");
    EXPECT_EQ(Ids({"list", "Thing", "--sort", "__CLASS", "--where", "N IS NOT NULL"}), "sabc");
    ExpectRefused({"list", "Thing", "--sort", "Nope"}, 1, "no property Nope");
    for (const char* unsorted : {"Texts", "Open"})
        ExpectRefused({"list", "Thing", "--sort", unsorted}, 1, "no order");
}

TEST_F(Listing, SortsManyInstancesToo) {
    std::string mof = "class Many { [key] string INSTANCE_ID; uint32 N; };";
    for (int i = 0; i < 1000; ++i)
        mof += "instance of Many { INSTANCE_ID = \"" + std::to_string(i) +
               "\"; N = " + std::to_string(i * 7919 % 1009) + "; };";
    Import(mof);
    const std::vector<json> all = Objects({"list", "Many", "--sort", "N:desc"});
    ASSERT_EQ(all.size(), 1000u);
    for (std::size_t i = 1; i < all.size(); ++i)
        EXPECT_GT(all[i - 1]["N"], all[i]["N"]);
    EXPECT_EQ(Objects({"list", "Many", "--sort", "N:desc", "--limit", "3"}),
              std::vector<json>(all.begin(), all.begin() + 3));
}

TEST_F(Listing, QueriesShowWhatTheySelect) {
    EXPECT_EQ(Ids({"query", "SELECT * FROM Thing WHERE N < 10"}), "bc");
    EXPECT_EQ(Run({"query", "select Name, INSTANCE_ID, name from Thing where N >= 10"}).out,
              "Name    INSTANCE_ID\n----    -----------\nanna    a\n\"null\"  s\n");
    EXPECT_EQ(
        Objects({"query", "SELECT INSTANCE_ID,N FROM Special WHERE N IS NULL"})[0].dump(),
        R"({"INSTANCE_ID":"t","N":null,"__CLASS":"Special","__RELPATH":"Special.INSTANCE_ID=\"t\"","__UNSET":["N"]})");
    EXPECT_EQ(Ids({"query", "SELECT * FROM Thing", "--sort", "N:desc", "--limit", "1"}), "s");
    ExpectRefused({"query", "SELECT Name FROM Thing", "--sort", "N"}, 2, "behind SELECT");
    ExpectRefused({"query", "SELECT * FROM Nope"}, 1, "Nope");
    ExpectRefused({"query", "DELETE FROM Thing"}, 1, "The query is: DELETE FROM Thing");
}

TEST_F(Listing, CellsAreReadableAndLoseNothingUnsaid) {
    const auto cells = [&](const std::string& id, const std::string& properties) {
        return Lines({"list", "Thing", "--where", "INSTANCE_ID='" + id + "'", "--properties", properties})
            .at(2);
    };
    EXPECT_EQ(cells("b", "At,Texts,Counts,Open"),
              R"(2026-01-01 00:00:00 +01:00  ["x", null, ""]  []      Window {Days: ["Mon"], Hour: 3})");
    EXPECT_EQ(cells("c", "At,Name,Counts"), "20251231235959.250000+000  \"\"    null")
        << "no fraction is dropped";
    EXPECT_EQ(cells("s", "Name"), "\"null\"");
    EXPECT_EQ(cells("t", "Name"), "null");
    EXPECT_EQ(cells("a", "Counts,Objects"), "[7]     [Window {Hour: 1}, Window {}]");
    EXPECT_EQ(Lines({"list", "Special", "--where", "INSTANCE_ID='t'", "--properties", "Extra"})[2],
              "line\\nend");

    const json a = Objects({"list", "Thing", "--limit", "1"})[0];
    EXPECT_EQ(a, RunJson({"get", "Thing", "a"}));
    EXPECT_EQ(Objects({"list", "Special", "--limit", "1"})[0]["Extra"], "more");
}

TEST_F(Listing, LongArraysSayHowLongTheyAre) {
    constexpr int LONG = 1'000'000;
    std::string counts = "0", objects = "instance of Window { Hour = 0; }";
    for (int i = 1; i < LONG; ++i)
        counts += "," + std::to_string(i);
    for (int i = 1; i < 100; ++i)
        objects += ", instance of Window { Hour = " + std::to_string(i) + "; }";
    Import("instance of Thing { INSTANCE_ID = \"long\"; Counts = {" + counts + "}; Objects = {" + objects +
           "}; };");
    const auto cell = [&](const std::string& property, const std::string& how) {
        return Lines({"list", "Thing", "--where", "INSTANCE_ID = 'long'", "--properties", property, how})
            .at(2);
    };
    EXPECT_EQ(cell("Counts", "--deep"),
              "[0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, … 1,000,000 elements]");
    EXPECT_THAT(cell("Objects", "--deep"),
                AllOf(StartsWith("[Window {Hour: 0}, Window {Hour: 1}"), HasSubstr("… 100 elements]")));
    EXPECT_THAT(cell("Counts", "--full"), HasSubstr(", 999998, 999999]"));
    const std::string shown = Run({"get", "Thing", "long"}).out;
    EXPECT_LT(shown.size(), 10'000u);
    EXPECT_THAT(shown,
                AllOf(HasSubstr("… 1,000,000 elements]"), HasSubstr("100 elements\n"), HasSubstr("[24]")));
    EXPECT_THAT(Run({"get", "Thing", "long", "--full"}).out, AllOf(HasSubstr("999999]"), HasSubstr("[99]")));

    const json whole = RunJson({"get", "Thing", "long"});
    ASSERT_EQ(whole["Counts"].size(), static_cast<std::size_t>(LONG));
    EXPECT_EQ(whole["Counts"][LONG - 1], LONG - 1);
    EXPECT_EQ(whole["Objects"].size(), 100u);
}

TEST_F(Listing, FitsATerminal) {
    ASSERT_EQ(Run({"set", "Thing", "a", "Name=" + std::string(200, 'x')}).code, 0);
    std::vector<std::string> names = {"list", "Thing", "--properties", "INSTANCE_ID,Name,N", "--limit", "1"};
    EXPECT_THAT(
        RunOnTerminal(names, 60).out,
        AllOf(HasSubstr("a            " + std::string(19, 'x') + "…  10\n"), StartsWith("INSTANCE_ID  ")));
    EXPECT_THAT(Run(names).out, HasSubstr(std::string(200, 'x')));
    names.emplace_back("--full");
    EXPECT_THAT(RunOnTerminal(names, 60).out, HasSubstr(std::string(200, 'x')));
    EXPECT_THAT(RunOnTerminal({"list", "Thing"}, 40).out, HasSubstr("…\n"));
}

}  // namespace
