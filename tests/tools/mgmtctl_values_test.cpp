// Values that mgmtctl sets: every CIM type there and back, null, arrays, and what does not fit.
#include <algorithm>

#include <algorithm>

#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace {

using nlohmann::json;

constexpr const char* SCHEMA = R"mof(
class Inner { uint8 Depth = 3; string Names[] = {"a", "b"}; };
class Thing {
    [key] string INSTANCE_ID;
    sint8 S8; uint8 U8; sint16 S16; uint16 U16; sint32 S32; uint32 U32; sint64 S64; uint64 U64;
    real32 R32; real64 R64; boolean B; string S; datetime D; char16 C; Thing ref Ref; Inner Emb; object Objs[];
    uint32 WithDefault = 7;
    sint8 S8s[]; uint8 U8s[]; uint32 U32s[]; sint64 S64s[]; uint64 U64s[]; real32 R32s[]; real64 R64s[];
    boolean Bs[]; string Ss[]; datetime Ds[]; char16 Cs[]; Thing ref Refs[];
};
instance of Thing {
    INSTANCE_ID = "full"; Emb = instance of Inner { Depth = 9; };
    Objs = {instance of Inner { Names = NULL; }, instance of Inner { Depth = NULL; }};
};
)mof";

class ToolValues : public ToolTest {
 protected:
    void SetUp() override { Import(SCHEMA); }

    // Sets the properties of an instance of its own, and reads them back.
    json SetAndGet(const std::vector<std::string>& assignments) {
        std::vector<std::string> words = {"set", "Thing", std::to_string(++made_), "--create"};
        words.insert(words.end(), assignments.begin(), assignments.end());
        const Outcome outcome = Run(words);
        EXPECT_EQ(outcome.code, 0) << testing::PrintToString(words) << outcome.err;
        json object = RunJson({"get", "Thing", std::to_string(made_)});
        json values = json::array();
        for (const std::string& each : assignments)
            values.push_back(object[each.substr(0, each.find('='))]);
        return values;
    }

 private:
    int made_ = 0;
};

TEST_F(ToolValues, EveryTypeComesBackAsItWasSet) {
    EXPECT_EQ(SetAndGet({"S8=-128", "U8=255", "S16=-32768", "U16=65535", "S32=-2147483648", "U32=4294967295",
                         "S64=-9223372036854775808", "U64=18446744073709551615"})
                  .dump(),
              "[-128,255,-32768,65535,-2147483648,4294967295,-9223372036854775808,18446744073709551615]");
    EXPECT_EQ(SetAndGet({"S8=127", "U32=0xFFFFFFFF", "R32=0.1", "R64=-1.7976931348623157e308", "B=true"}),
              json({127, UINT32_MAX, 0.1, -1.7976931348623157e308, true}));
    EXPECT_EQ(SetAndGet({"R32=inf", "B=False", "S=plain text", "D=2026-11-22T10:30:00+01:00", "C=é",
                         "Ref=Thing.INSTANCE_ID='o'"})
                  .dump(),
              R"(["INF",false,"plain text","20261122103000.000000+060","é","Thing.INSTANCE_ID='o'"])");
    EXPECT_EQ(SetAndGet({"S=", "D=00000001120000.000000:000", "C=\"\\\"\"", "Ss=null"}).dump(),
              R"(["","00000001120000.000000:000","\"",null])");
    EXPECT_EQ(SetAndGet({"WithDefault=null", "S=\"null\""}).dump(), "[null,\"null\"]");
    EXPECT_EQ(SetAndGet({"R64=\"NaN\"", "S=\"unset\"", "C=55296"}).dump(), "[\"NaN\",\"unset\",55296]");
    EXPECT_EQ(SetAndGet({"S=\"half"}), json({"\"half"}));
    EXPECT_EQ(SetAndGet({"S=ä漢😀"}), json({"ä漢😀"}));
    EXPECT_EQ(SetAndGet({"S=\"a\\nb\\u0000c\\\\\""}).dump(), R"(["a\nb\u0000c\\"])");
}

TEST_F(ToolValues, ArraysComeBackAsTheyWereSet) {
    EXPECT_EQ(SetAndGet({"S8s=[-128,127]", "U8s=[]", "U32s=[0,\"4294967295\",\"0x10\"]",
                         "U64s=[18446744073709551615]", "S64s=[-9223372036854775808,9223372036854775807]"})
                  .dump(),
              "[[-128,127],[],[0,4294967295,16],[18446744073709551615],"
              "[-9223372036854775808,9223372036854775807]]");
    EXPECT_EQ(SetAndGet({"R32s=[0.5,2]", "R64s=[1e300,-0.1]", "Bs=[true,false,true]", "Cs=[55296,\"€\"]",
                         R"(Ss=["", null, "a,b", "[x]", "null"])", "Refs=[\"Thing.INSTANCE_ID='a'\"]",
                         R"(Ds=["2026-11-22", "00000000000001.000000:000"])"})
                  .dump(),
              R"([[0.5,2.0],[1e+300,-0.1],[true,false,true],[55296,"€"],["",null,"a,b","[x]","null"],)"
              R"(["Thing.INSTANCE_ID='a'"],["20261122000000.000000+000","00000000000001.000000:000"]])");
}

TEST_F(ToolValues, EmbeddedObjectsAreReadAndCanBeMadeNull) {
    const json full = RunJson({"get", "Thing", "full"});
    EXPECT_EQ(full["Emb"].dump(),
              R"({"Depth":9,"Names":["a","b"],"__CLASS":"Inner","__RELPATH":null,"__UNSET":["Names"]})");
    ASSERT_EQ(full["Objs"].size(), 2u);
    EXPECT_EQ(full["Objs"][0]["Names"], nullptr);

    EXPECT_EQ(Run({"set", "Thing", "full", "Emb={}"}).code, 2);
    EXPECT_EQ(Run({"set", "thing", "full", "Emb=null", "u8=1"}).code, 0);
    const json changed = RunJson({"get", "THING", "FULL"});
    EXPECT_EQ(changed["Emb"], nullptr);
    EXPECT_EQ(changed["U8"], 1);
    EXPECT_EQ(changed["Objs"], full["Objs"]);
}

TEST_F(ToolValues, WhatDoesNotFitIsRefusedAndChangesNothing) {
    const json before = RunJson({"get", "Thing", "full"});
    const auto refused = [&](int code, const std::vector<std::string>& assignments) {
        for (const std::string& each : assignments)
            ExpectRefused({"set", "Thing", "full", "R64s=[1]", each}, code, "");
    };
    refused(1, {"Nope=1", "D=20261340000000.000000+000"});
    refused(2, {"S8=128",
                "U8=-1",
                "U8=256",
                "U16=65536",
                "U32=-5",
                "U32=4294967296",
                "S64=9223372036854775808",
                "U64=-1",
                "U8s=[1,256]",
                "C=65536",
                "Cs=[5]",
                "U32=1.5",
                "U32=",
                "U32=ten",
                "U64=18446744073709551616",
                "R32=1e39",
                "R64=x",
                "B=yes",
                "C=ab",
                "C=😀",
                "D=tomorrow",
                "Ss=a",
                "Ss=[\"a\"",
                "Ss=[1]",
                "U32s=[null]",
                "U32s=[[1]]",
                "S=\"a\"b\"",
                "S=\"\\ud83d\"",
                "INSTANCE_ID=u",
                "r64s=[2]"});
    EXPECT_EQ(RunJson({"get", "Thing", "full"}), before);
    ExpectRefused({"set", "Thing", "full", "S8=1.0"}, 2, "sint8: \"1.0\" is not an integer from -128 to 127");
    ExpectRefused({"set", "Thing", "full", "R32=1e39"}, 2, "3.4028235e38");
}

TEST_F(ToolValues, NeverSetIsKeptApartAndCanBeHadBack) {
    const auto unset = [](const json& instance, const char* name) {
        return std::count(instance["__UNSET"].begin(), instance["__UNSET"].end(), name) == 1;
    };
    ASSERT_EQ(Run({"create", "Thing", "n", "S=null", "U8=unset"}).code, 0);
    const json made = RunJson({"get", "Thing", "n"});
    EXPECT_TRUE(unset(made, "WithDefault") && unset(made, "U8") && !unset(made, "S"));
    EXPECT_THAT(Run({"get", "Thing", "n"}).out, testing::HasSubstr("7  (default)\n"));

    // What is not named stays as it is, unset as well.
    EXPECT_EQ(Run({"set", "Thing", "n", "WithDefault=8", "B=null"}).code, 0);
    ASSERT_EQ(Run({"set", "Thing", "n", "WithDefault=unset", "S=unset", "U16=3"}).code, 0);
    const json changed = RunJson({"get", "Thing", "n"});
    EXPECT_TRUE(unset(changed, "S") && unset(changed, "Objs") && !unset(changed, "B"));
    EXPECT_EQ(changed["WithDefault"], 7);
}

}  // namespace
