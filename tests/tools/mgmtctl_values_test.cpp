// Values that mgmtctl sets: every CIM type there and back, null, arrays, and what does not fit.
#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr const char* SCHEMA = R"mof(
#pragma namespace("\\\\.\\root\\Vantrel\\Halvenor")
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

    // Sets one property of a new instance, or of the one that the test has, and reads it back.
    json SetAndGet(const std::string& name, const std::string& value) const {
        const Outcome outcome = Run({"set", "Thing", "t", "--create", name + "=" + value});
        EXPECT_EQ(outcome.code, 0) << name << "=" << value << ": " << outcome.err;
        return RunJson({"get", "Thing", "t"})[name];
    }
};

TEST_F(ToolValues, EveryTypeComesBackAsItWasSet) {
    const std::vector<std::tuple<std::string, std::string, json>> cases = {
        {"S8", "-128", -128},
        {"S8", "127", 127},
        {"U8", "255", 255},
        {"S16", "-32768", -32768},
        {"U16", "65535", 65535},
        {"S32", "-2147483648", -2147483648LL},
        {"U32", "4294967295", 4294967295ULL},
        {"U32", "0xFFFFFFFF", 4294967295ULL},
        {"S64", "-9223372036854775808", INT64_MIN},
        {"U64", "18446744073709551615", UINT64_MAX},
        {"R32", "0.1", 0.1},
        {"R32", "inf", "INF"},
        {"R64", "-1.7976931348623157e308", -1.7976931348623157e308},
        {"B", "true", true},
        {"B", "False", false},
        {"S", "plain text", "plain text"},
        {"S", "", ""},
        {"S", "\"null\"", "null"},
        {"S", "\"a\\nb\\u0000c\\\\\"", json(std::string("a\nb\0c\\", 6))},
        {"S", "\"half", "\"half"},
        {"S", "ä漢😀", "ä漢😀"},
        {"S", "null", nullptr},
        {"D", "2026-11-22T10:30:00+01:00", "20261122103000.000000+060"},
        {"D", "00000001120000.000000:000", "00000001120000.000000:000"},
        {"C", "é", "é"},
        {"C", "\"\\\"\"", "\""},
        {"Ref", "Thing.INSTANCE_ID=\"other\"", "Thing.INSTANCE_ID=\"other\""},
    };
    for (const auto& [name, value, expected] : cases)
        EXPECT_EQ(SetAndGet(name, value), expected) << name << "=" << value;
}

TEST_F(ToolValues, ArraysComeBackAsTheyWereSet) {
    const std::vector<std::tuple<std::string, std::string, json>> cases = {
        {"S8s", "[-128,127]", {-128, 127}},
        {"U8s", "[]", json::array()},
        {"U32s", "[0,\"4294967295\",\"0x10\"]", {0, 4294967295ULL, 16}},
        {"S64s", "[-9223372036854775808,9223372036854775807]", {INT64_MIN, INT64_MAX}},
        {"U64s", "[18446744073709551615]", {UINT64_MAX}},
        {"R32s", "[0.5,2]", {0.5, 2.0}},
        {"R64s", "[1e300,-0.1]", {1e300, -0.1}},
        {"Bs", "[true,false,true]", {true, false, true}},
        {"Ss", R"(["", null, "a,b", "[x]", "null"])", {"", nullptr, "a,b", "[x]", "null"}},
        {"Ds",
         R"(["2026-11-22", "00000000000001.000000:000"])",
         {"20261122000000.000000+000", "00000000000001.000000:000"}},
        {"Cs", R"(["a","€"])", {"a", "€"}},
        {"Refs", R"(["Thing.INSTANCE_ID=\"a\""])", {"Thing.INSTANCE_ID=\"a\""}},
        {"Ss", "null", nullptr},
    };
    for (const auto& [name, value, expected] : cases)
        EXPECT_EQ(SetAndGet(name, value), expected) << name << "=" << value;
}

TEST_F(ToolValues, EmbeddedObjectsAreReadAndCanBeMadeNull) {
    const json full = RunJson({"get", "Thing", "full"});
    EXPECT_EQ(full["Emb"]["__CLASS"], "Inner");
    EXPECT_EQ(full["Emb"]["Depth"], 9);
    EXPECT_EQ(full["Emb"]["Names"], json({"a", "b"}));
    ASSERT_EQ(full["Objs"].size(), 2u);
    EXPECT_EQ(full["Objs"][0]["Names"], nullptr);
    EXPECT_EQ(full["Objs"][1]["Depth"], nullptr);

    EXPECT_EQ(Run({"set", "Thing", "full", "Emb={}"}).code, 2);
    EXPECT_EQ(Run({"set", "Thing", "full", "Emb=null", "U8=1"}).code, 0);
    const json changed = RunJson({"get", "Thing", "full"});
    EXPECT_EQ(changed["Emb"], nullptr);
    EXPECT_EQ(changed["U8"], 1);
    EXPECT_EQ(changed["Objs"], full["Objs"]);
}

TEST_F(ToolValues, NullIsKeptApartFromTheDefault) {
    EXPECT_EQ(SetAndGet("U8", "1"), 1);
    EXPECT_EQ(RunJson({"get", "Thing", "t"})["WithDefault"], 7);
    EXPECT_EQ(SetAndGet("WithDefault", "null"), nullptr);

    EXPECT_EQ(Run({"set", "Thing", "new", "WithDefault=null", "S=x", "--create"}).code, 0);
    const json made = RunJson({"get", "Thing", "new"});
    EXPECT_EQ(made["WithDefault"], nullptr);
    EXPECT_EQ(made["S"], "x");
}

TEST_F(ToolValues, WhatDoesNotFitIsRefusedAndChangesNothing) {
    ASSERT_EQ(SetAndGet("S", "before"), "before");
    const json before = RunJson({"get", "Thing", "t"});
    const std::vector<std::pair<std::string, int>> cases = {{"S8=128", 1},
                                                            {"U8=-1", 1},
                                                            {"U8=256", 1},
                                                            {"U16=65536", 1},
                                                            {"U32=-5", 1},
                                                            {"U32=4294967296", 1},
                                                            {"S64=9223372036854775808", 1},
                                                            {"U64=-1", 1},
                                                            {"U8s=[1,256]", 1},
                                                            {"U32=1.5", 2},
                                                            {"U32=", 2},
                                                            {"U32=ten", 2},
                                                            {"U64=18446744073709551616", 2},
                                                            {"R32=1e39", 2},
                                                            {"R64=x", 2},
                                                            {"B=yes", 2},
                                                            {"C=ab", 2},
                                                            {"C=😀", 2},
                                                            {"D=tomorrow", 2},
                                                            {"Ss=a", 2},
                                                            {"Ss=[\"a\"", 2},
                                                            {"Ss=[1]", 2},
                                                            {"U32s=[null]", 2},
                                                            {"U32s=[[1]]", 2},
                                                            {"S=\"a\"b\"", 2},
                                                            {"S=\"\\ud83d\"", 2},
                                                            {"INSTANCE_ID=u", 2},
                                                            {"Nope=1", 1},
                                                            {"D=20261340000000.000000+000", 1}};
    for (const auto& [assignment, code] : cases) {
        const Outcome outcome = Run({"set", "Thing", "t", "R64s=[1]", assignment});
        EXPECT_EQ(outcome.code, code) << assignment << ": " << outcome.err;
        EXPECT_EQ(outcome.out, "");
        EXPECT_NE(outcome.err, "");
    }
    EXPECT_EQ(RunJson({"get", "Thing", "t"}), before);
}

TEST_F(ToolValues, PropertiesAreNamedInAnyCaseAndOnlyOnce) {
    EXPECT_EQ(Run({"set", "thing", "t", "u8=5", "--create"}).code, 0);
    EXPECT_EQ(RunJson({"get", "THING", "T"})["U8"], 5);
    EXPECT_EQ(Run({"set", "Thing", "t", "U8=1", "u8=2"}).code, 2);
}

}  // namespace
