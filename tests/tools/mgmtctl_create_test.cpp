// mgmtctl create, and mgmtctl xml.
#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* SCHEMA = R"mof(
#pragma namespace("\\\\.\\root\\Vantrel\\Halvenor")
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
    EXPECT_EQ(made["Days"], 7);
    EXPECT_EQ(made["Tags"], json({"x"}));
    EXPECT_EQ(made["Big"], UINT64_MAX);
    EXPECT_EQ(made["Name"], nullptr);

    ExpectRefused({"create", "Policy", "A", "Days=8"}, 1, "there already");
    EXPECT_EQ(RunJson({"get", "Policy", "a"}), made);
    EXPECT_EQ(RunJson({"create", "Policy", "bare"})["result"], "created");
    EXPECT_EQ(RunJson({"get", "Policy", "bare"})["Days"], 365);
}

TEST_F(Creating, KeepsNullApartFromTheDefault) {
    ASSERT_EQ(Run({"create", "Policy", "n", "Days=null", "Name=null"}).code, 0);
    EXPECT_EQ(RunJson({"get", "Policy", "n"})["Days"], nullptr);
    ExpectRefused({"create", "Policy", "n", "Days=null"}, 1, "there already");
}

TEST_F(Creating, TakesAnyId) {
    for (const std::string& id : {std::string("a\"b\\"), std::string("😀 x\n"), std::string(5000, 'y')}) {
        const json made = RunJson({"create", "Policy", "--", id});
        EXPECT_EQ(RunJson({"get", made["path"].get<std::string>()})["INSTANCE_ID"], id);
    }
}

TEST_F(Creating, SaysWhyItCannot) {
    ExpectRefused({"create", "Base", "x"}, 1, "abstract");
    ExpectRefused({"create", "Nope", "x"}, 1, "there is no class Nope");
    ExpectRefused({"create", "Pair", "x"}, 1, "INSTANCE_ID");
    ExpectRefused({"create", "Policy", "x", "Nope=1"}, 1, "no property Nope");
    ExpectRefused({"create", "Policy", "x", "Days=-1"}, 1, "Days");
    ExpectRefused({"create", "Policy", "x", "Days=many"}, 2, "Days");
    ExpectRefused({"create", "Policy", "x", "INSTANCE_ID=y"}, 2, "key");
    ExpectRefused({"get", "Policy", "x"}, 1, "x");
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
