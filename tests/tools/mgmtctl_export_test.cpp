// What mgmtctl tells of a schema: exports that import as the same, descriptions, diagrams; and instances that
// are named by their paths.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/tools/tool_runner.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* SCHEMA = R"mof(
Qualifier Weight : uint16 = 7, Scope(class, property), Flavor(DisableOverride, Restricted);
Qualifier Words : string[], Scope(any), Flavor(EnableOverride, ToSubclass, Translatable);

[abstract, Weight(3), Description("What all have.\nAnd a second line, which is so long that a terminal of eighty "
  "columns cannot show it on one of its own.")]
class Base {
    [key, read, Description("Names it")] string INSTANCE_ID;
    [Units("days"), ValueMap{"0", "1"}, Values{"never", "daily", "later"}, Words{"a", "b"} : ToInstance]
    uint32 Often = 1;
};
class Zebra : Base { Plan Kept; [EmbeddedInstance("Plan")] string More[]; object Any[3]; };
class Apple : Zebra {
    [Weight(1)] real64 Weight = 0.1;
    [Words{"run"}] uint32 Run([In] string Names[], [In, Out] Plan Way, [Out] Other ref Made);
    void Stop();
};
class Plan { uint8 Hours[] = {1, 2}; };
class BigPlan : Plan { sint64 Low = -9223372036854775808; };
class Other { [key] uint8 K; };
[association] class Link { [key] Base ref From; [key] Base ref To; char16 Sign; datetime Since; };
)mof";

std::string ContentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string RandomText(std::mt19937& random) {
    const char* const pieces[] = {"a",       "Z",
                                  "\\\"",    "\\\\",
                                  "\\n",     "\\t",
                                  "'",       "\\x1",
                                  " ",       "\xC3\xA4",
                                  "\\xFEFF", "\xF0\x9F\x98\x80",
                                  "// ",     "\\xD83D\\xDE00",
                                  "$"};
    std::string text = "\"";
    for (std::size_t count = random() % 8; count > 0; --count)
        text += pieces[random() % std::size(pieces)];
    return text + "\"";
}

// Values as a person may write them, which is not how an export does.
std::string RandomInstances(std::mt19937& random) {
    const char* const reals[] = {"1", "-0.0", "1e300", "4.9e-324", "0.1", "INF", "-INF", "NaN", "NULL"};
    const std::string objects[] = {"NULL", "instance of Plan { Hours = {0x10, 077, 11b}; }",
                                   "instance of BigPlan { Low = NULL; }", "instance of Plan {}"};
    std::string mof;
    for (int i = 0; i < 300; ++i) {
        mof += "instance of " + std::string(random() % 2 ? "Apple" : "Zebra") + " {\n  INSTANCE_ID = \"" +
               std::to_string(random() % 7) + "-" + std::to_string(i) + "\" " + RandomText(random) + ";\n";
        if (random() % 2) mof += "  Often = " + std::to_string(random()) + ";\n";
        if (random() % 2) mof += "  Kept = " + objects[random() % 4] + ";\n";
        if (random() % 2) mof += "  More = {" + objects[1] + ", " + objects[2] + "};\n";
        if (random() % 3 == 0) mof += "  Any = {};\n";
        mof += "};\n";
        mof += "instance of Apple { INSTANCE_ID = \"w" + std::to_string(i) +
               "\"; Weight = " + reals[random() % std::size(reals)] + "; };\n";
        mof += "instance of Link { From = " + RandomText(random) + " \"" + std::to_string(i) +
               "\"; To = " + RandomText(random) + "; Sign = '\\x" + std::to_string(random() % 9000 + 1000) +
               "'; Since = \"20261122103000.000000+060\"; };\n";
    }
    return mof;
}

class Export : public ToolTest {
 protected:
    void SetUp() override { Import(SCHEMA); }

    // From here on the tool works on an empty store.
    void UseEmptyStore() const { setenv("MGMT_STORE", (Folder() / "empty").c_str(), 1); }

    std::string Exported(const std::vector<std::string>& arguments) const {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        return outcome.out;
    }
};

TEST_F(Export, ImportsIntoAnEmptyStoreAsTheSame) {
    std::mt19937 random(3);
    Import(RandomInstances(random));
    Import(
        "#pragma namespace(\"\\\\\\\\.\\\\root\\\\Vantrel\\\\Halvenor\\\\Below\")\nclass X { [key] string K; "
        "};");
    const std::string first = Exported({"export", "--instances", "--recursive"});
    const json before = RunJson({"describe", "Apple"});
    UseEmptyStore();
    Import(first);
    EXPECT_EQ(Exported({"export", "--instances", "--recursive"}), first);
    EXPECT_EQ(RunJson({"describe", "Apple"}), before);
    EXPECT_EQ(RunJson({"count", "Base"}), 600);
    EXPECT_THAT(first, HasSubstr("Qualifier Weight : uint16 = 7,"));
    // Nothing of it is left when it is imported on top of itself, and a declaration takes the place of
    // another.
    Import(first);
    EXPECT_EQ(Exported({"export", "--instances", "--recursive"}), first);
    Import("Qualifier WEIGHT : uint16 = 8, Scope(class, property), Flavor(DisableOverride, Restricted);");
    EXPECT_THAT(Exported({"export"}),
                AllOf(HasSubstr("Qualifier WEIGHT : uint16 = 8,"), Not(HasSubstr("= 7,"))));
}

TEST_F(Export, NamedClassesComeWithWhatTheyNeed) {
    Import(
        "instance of Zebra { INSTANCE_ID = \"z\"; Any = {instance of BigPlan { Low = 1; }}; };"
        "instance of Other { K = 1; };");
    const std::string zebra = Exported({"export", "zebra", "--instances"});
    EXPECT_THAT(zebra,
                AllOf(HasSubstr("class Base\n"), HasSubstr("class Apple : Zebra"), HasSubstr("class Other\n"),
                      Not(HasSubstr("class Link")), Not(HasSubstr("instance of Other"))));
    EXPECT_LT(zebra.find("class Zebra"), zebra.find("class Apple"));
    UseEmptyStore();
    Import(zebra);  // only with BigPlan, which nothing but an instance names
    EXPECT_EQ(RunJson({"get", "Zebra", "z"})["Any"][0]["Low"], 1);
    ExpectRefused({"export", "Zebra", "Nope"}, 1, "there is no class Nope");
    ExpectRefused({"export", "Zebra", "--recursive"}, 2, "CLASS");
    ExpectRefused({"export", "--json"}, 2, "--output");
}

TEST_F(Export, AFileIsWrittenWholeOrNotAtAll) {
    const std::string path = WriteFile("out.mof", "older");
    EXPECT_EQ(RunJson({"export", "--output", path}),
              json({{"file", path}, {"classes", 7}, {"instances", 0}}));
    EXPECT_EQ(ContentOf(path), Exported({"export"}));

    WriteFile("out.mof", "older");
    ExpectRefused({"export", "Nope", "--output", path}, 1, "Nope");
    EXPECT_EQ(ContentOf(path), "older");
    ExpectRefused({"export", "--output", (Folder() / "nowhere" / "x.mof").string()}, 1, "No such file");
    ExpectRefused({"export", "--output", Folder().string()}, 1, "no ordinary file");
    for (const auto& entry : std::filesystem::directory_iterator(Folder()))
        EXPECT_FALSE(entry.path().filename().string().starts_with("out.mof.")) << entry;
}

TEST_F(Export, DescribesAClassForPeople) {
    EXPECT_THAT(
        Run({"describe", "Base"}).out,
        HasSubstr("abstract class Base\n    What all have.\n"
                  "    And a second line, which is so long that a terminal of eighty columns cannot\n"
                  "    show it on one of its own.\n    Key: INSTANCE_ID\n    Directly below: Zebra\n"));
    EXPECT_THAT(
        Run({"describe", "Apple"}).out,
        AllOf(HasSubstr("class Apple : Zebra : Base\n"),
              HasSubstr("Properties inherited from Base\n    string INSTANCE_ID  (key, read)\n"
                        "        Names it\n    uint32 Often = 1\n        Units: days\n"
                        "        Values: 0 = never, 1 = daily, later\n"),
              HasSubstr("Methods\n    uint32 Run(in string[] Names, in out object Plan Way, out ref Other "
                        "Made)\n    void Stop()\n")));
    const json described = RunJson({"describe", "Apple"});
    EXPECT_EQ(described["superclasses"], json({"Zebra", "Base"}));
    EXPECT_EQ(described["methods"][0]["parameters"][1]["type"], "object Plan");
    EXPECT_EQ(described["methods"][0]["qualifiers"]["Words"], json({"run"}));
}

TEST_F(Export, DrawsAClassAndItsNeighbours) {
    const std::string drawn = Run({"graph", "plan"}).out;
    EXPECT_THAT(drawn, AllOf(HasSubstr("digraph \"Plan\" {"),
                             HasSubstr("\"BigPlan\" -> \"Plan\" [arrowhead=onormal]"),
                             HasSubstr("\"Zebra\" -> \"Plan\" [label=\"Kept\""), Not(HasSubstr("Link"))));
    const std::string all = Run({"graph"}).out;
    EXPECT_THAT(all, AllOf(HasSubstr("digraph \"\\\\\\\\.\\\\root\\\\Vantrel\\\\Halvenor\""),
                           HasSubstr("\"Link\" -> \"Base\" [label=\"From\", constraint=false, style=dashed"),
                           HasSubstr("<U>INSTANCE_ID</U> : string<BR"), HasSubstr("<I>Base</I>")));
    ExpectRefused({"graph", "Nope"}, 1, "there is no class Nope");
}

TEST_F(Export, InstancesAreChangedAndDeletedByTheirPaths) {
    Import("instance of Link { From = \"a\"; To = \"b\"; }; instance of Zebra { INSTANCE_ID = \"z\"; };");
    const std::string link = "//./root/Vantrel/Halvenor:Link.To='b',From=\"A\"";
    EXPECT_EQ(RunJson({"-n", "root", "set", link, "Sign=x"})["result"], "updated");
    EXPECT_EQ(RunJson({"get", link})["Sign"], "x");
    ExpectRefused({"set", link, "From=c"}, 2, "is a key");
    ExpectRefused({"set", "Link.From='x',To='y'", "Sign=x"}, 1, "--create");
    ExpectRefused({"set", "Zebra", "Often=1"}, 2, "needs a NAME=VALUE");
    ExpectRefused({"delete", link, "b"}, 2, "alone");
    EXPECT_EQ(RunJson({"delete", link})["result"], "deleted");
    ExpectRefused({"delete", link}, 1, "there is no instance");
    EXPECT_EQ(RunJson({"set", "Zebra='z'", "Often=5"})["properties"], 1);
    EXPECT_EQ(RunJson({"get", "Zebra", "z"})["__UNSET"], json({"Any", "Kept", "More"}));
    EXPECT_EQ(RunJson({"set", "Zebra='z'", "Kept=null"})["properties"], 1);
    EXPECT_EQ(RunJson({"get", "Zebra", "z"})["__UNSET"], json({"Any", "More"}));
    EXPECT_EQ(RunJson({"delete", "Zebra=\"z\""})["result"], "deleted");
}

}  // namespace
