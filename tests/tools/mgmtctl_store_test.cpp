// check, backup, limits, an import by force, a mistyped store; create and xml.
#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/tool_runner.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* POLICIES = R"(
class Policy { [key] string INSTANCE_ID; string Days; };
instance of Policy { INSTANCE_ID = "fits"; Days = "30"; };
instance of Policy { INSTANCE_ID = "not"; Days = "many"; };
)";

class StoreCommands : public ToolTest {};

TEST_F(StoreCommands, AStoreIsCheckedAndCopied) {
    Import(POLICIES);
    const json sound = RunJson({"check"});
    EXPECT_EQ(sound["instances"], 2);
    EXPECT_TRUE(sound["findings"].empty());
    EXPECT_THAT(Run({"check"}).out, HasSubstr("the store is sound"));

    const std::string copy = (Folder() / "copy").string();
    EXPECT_GT(RunJson({"backup", copy})["bytes"], 0);
    ExpectRefused({"backup", copy}, 1, "already");
    ExpectRefused({"backup", ""}, 2, "must not be empty");
    setenv("MGMT_STORE", copy.c_str(), 1);
    EXPECT_EQ(Run({"count", "Policy"}).out, "2\n");

    // In the copy, for it is used by nobody.
    std::fstream file(copy + "/data.mdb", std::ios::in | std::ios::out | std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    for (size_t at = bytes.find("many"); at != std::string::npos; at = bytes.find("many", at + 1))
        file.seekp(static_cast<std::streamoff>(at)).put('M');
    file.close();
    const Outcome damaged = Run({"check"});
    EXPECT_EQ(damaged.code, 1);
    EXPECT_THAT(damaged.out, AllOf(HasSubstr("class Policy with the key \"not\""), HasSubstr("findings")));
    EXPECT_THAT(damaged.err, HasSubstr("backup"));
}

TEST_F(StoreCommands, LimitsTellWhatIsInUse) {
    Import(POLICIES);
    EXPECT_THAT(RunJson({"limits"}).dump(),
                HasSubstr(R"({"limit":4096,"name":"properties of a class",)"
                          R"("percent":0.048828125,"unit":"properties","used":2})"));
    EXPECT_THAT(Run({"limits"}).out, HasSubstr("properties of a class"));
}

TEST_F(StoreCommands, AClassIsChangedByForceOnly) {
    Import(POLICIES);
    const std::string changed =
        WriteFile("changed.mof", "class Policy { [key] string INSTANCE_ID; uint32 Days = 5; };");
    ExpectRefused({"import", changed}, 1, "2 instances");
    EXPECT_EQ(Run({"import", "--force", changed}).code, 0);
    EXPECT_EQ(RunJson({"get", "Policy", "fits"})["Days"], 30);
    EXPECT_EQ(RunJson({"get", "Policy", "not"})["Days"], 5);
}

TEST_F(StoreCommands, AMistypedStoreIsNotMade) {
    const std::string mistyped = (Folder() / "mistyped").string();
    setenv("MGMT_STORE", mistyped.c_str(), 1);
    for (const std::string command : {"check", "limits", "classes", "export"})
        ExpectRefused({command}, 1, mistyped);
    EXPECT_FALSE(std::filesystem::exists(mistyped));
}

constexpr const char* SCHEMA = R"mof(
[abstract] class Base { [key] string INSTANCE_ID; string Name; };
class Policy : Base { uint32 Days = 365; string Tags[]; uint64 Big; Policy ref Parent; };
class Pair { [key] string A; [key] string B; };
instance of Policy { INSTANCE_ID = "old"; Name = "<&> \"ä\""; Tags = {"a", NULL, ""}; };
)mof";

class Creating : public ToolTest {
 protected:
    void SetUp() override { Import(SCHEMA); }
};

TEST_F(Creating, MakesAnInstanceOnce) {
    EXPECT_EQ(Run({"create", "policy", "a", "days=7", "Tags=[\"x\"]", "Big=18446744073709551615"}).out,
              "Policy.INSTANCE_ID=\"a\" created\n");
    const json made = RunJson({"get", "Policy", "a"});
    EXPECT_EQ((json{made["Days"], made["Tags"], made["Big"], made["Name"]}).dump(),
              "[7,[\"x\"],18446744073709551615,null]");
    ExpectRefused({"create", "Policy", "A", "Days=8"}, 1, "there already");
    EXPECT_EQ(RunJson({"get", "Policy", "a"}), made);
    EXPECT_EQ(RunJson({"create", "Policy", "bare"})["result"], "created");
    EXPECT_EQ(RunJson({"get", "Policy", "bare"})["Days"], 365);
    EXPECT_EQ(RunJson({"create", "Policy", "null", "Days=null"})["result"], "created");
    EXPECT_EQ(RunJson({"get", "Policy", "null"})["Days"], nullptr);
    const std::string id = "a\"b\\😀 x\n" + std::string(5000, 'y');
    const json odd = RunJson({"create", "Policy", "--", id});
    EXPECT_EQ(RunJson({"get", odd["path"].get<std::string>()})["INSTANCE_ID"], id);
}

TEST_F(Creating, SaysWhyItCannot) {
    ExpectRefused({"create", "Base", "x"}, 1, "abstract");
    ExpectRefused({"create", "Nope", "x"}, 1, "there is no class Nope");
    ExpectRefused({"create", "Pair", "x"}, 1, "INSTANCE_ID");
    ExpectRefused({"create", "Policy", "x", "Nope=1"}, 1, "no property Nope");
    ExpectRefused({"create", "Policy", "x", "Days=-1"}, 2, "Days");
    ExpectRefused({"create", "Policy", "x", "Days=many"}, 2, "Days");
    ExpectRefused({"create", "Policy", "x", "INSTANCE_ID=y"}, 2, "key");
    ExpectRefused({"get", "Policy", "x"}, 1, "x");
}

TEST_F(Creating, ByAPathThatHasTheKeys) {
    Import(R"(class Mixed { [key] string A; [key] sint64 B; [key] boolean C; [key] char16 D; string V; };
              [singleton] class Single { string V; }; class One { [key] string INSTANCE_ID; string V; };)");
    for (const char* path : {R"(Mixed.A="q\"\\,B=1",B=-5,C=TRUE,D=5)", "mixed.d=65,C=false,b=7,A=''",
                             "Single=@", "One='it\\'s'"}) {
        EXPECT_EQ(RunJson({"set", path, "V=x", "--create"})["result"], "created") << path;
        EXPECT_EQ(RunJson({"get", path})["V"], "x") << path;
        EXPECT_EQ(RunJson({"set", path, "--create"})["result"], "updated") << path;
    }
}

TEST_F(Creating, XmlIsWhatTheServiceSays) {
    const Outcome xml = Run({"xml", "Policy", "old"});
    EXPECT_THAT(xml.out, AllOf(StartsWith("<INSTANCE CLASSNAME=\"Policy\""), EndsWith("</INSTANCE>\n"),
                               HasSubstr("&lt;&amp;&gt;"), HasSubstr("ä"), HasSubstr("<VALUE.NULL/>"),
                               Not(HasSubstr("__"))));
    EXPECT_EQ(Run({"xml", "Policy.INSTANCE_ID=\"old\""}).out, xml.out);
    EXPECT_EQ(RunJson({"xml", "Policy", "old"})["xml"].get<std::string>() + "\n", xml.out);
    EXPECT_THAT(Run({"xml", "Policy"}).out,
                AllOf(StartsWith("<CLASS NAME=\"Policy\""), HasSubstr("NAME=\"Days\"")));
    ExpectRefused({"xml", "Policy", "nope"}, 1, "there is no instance");
    ExpectRefused({"xml", "Nope"}, 1, "there is no class Nope");
}

}  // namespace
