// What a schema says beside classes and instances: qualifiers, methods, pragmas; and objects as texts.
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/language/mof_writer.h"
#include "tests/service/language/memory_target.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

class MofSchema : public testing::Test {
 protected:
    // The fault's place and message; empty when there was none.
    std::string Run(std::string_view text) {
        warnings.clear();
        MofOptions options;
        options.warn = [this](const std::string& sentence) { warnings.push_back(sentence); };
        return FaultIn(Import(target, text, options));
    }

    void ExpectFaults(const std::vector<std::pair<std::string, std::string>>& texts_and_fragments,
                      const std::string& start = "") {
        for (const auto& [text, fragment] : texts_and_fragments)
            EXPECT_THAT(Run(start + text), HasSubstr(fragment)) << text;
    }

    MemoryTarget target;
    std::vector<std::string> warnings;
};

TEST_F(MofSchema, QualifiersAreWhatTheirDeclarationsSay) {
    // Declarations may stand behind their uses, and in an earlier import.
    ASSERT_EQ(Run(R"([NOTE, Size(5) : ToSubclass, flag, Free(5)] class First {};
        Qualifier Note : string = "none", Scope(class, association), Flavor(Translatable);
        Qualifier Size : uint32, Scope(any), Flavor(DisableOverride, Restricted);
        Qualifier Flag : boolean = false, Scope(any), Flavor(DisableOverride);
        Qualifier List : uint8[] = {1, 2}, Scope(property, Instance, namespace);)"),
              "");
    ASSERT_EQ(Run("[Note(NULL) : Restricted, Size, Flag(FALSE), List] class Second {};"), "");
    std::string written;
    for (const char* name : {"First", "Second"})
        ASSERT_TRUE(AppendClassMof(target.Class(name)->Declaration(), {}, written).ok());
    EXPECT_EQ(written,
              R"([NOTE("none") : Translatable, Size(5) : DisableOverride, flag : DisableOverride, Free(5)]
class First
{
};
[Note(NULL) : Restricted Translatable,
 Size(NULL) : DisableOverride Restricted,
 Flag(FALSE) : DisableOverride,
 List {
     1, 2}]
class Second
{
};
)");
    EXPECT_EQ(DescribeType(FindQualifier(target.Class("First")->Qualifiers(), "Size")->type), "uint32");
    // A wrong place is no fault, and said once.
    EXPECT_THAT(
        warnings,
        ElementsAre(
            "a.mof:1:46: qualifier List stands at class Second, it is declared for properties, instances, "
            "namespaces"));
    EXPECT_EQ(Run("class Quiet { [List] string A; [List] object ref B; };"), "");
    EXPECT_THAT(warnings, ElementsAre());
    EXPECT_EQ(Run("Qualifier Again : uint8 = 2, Scope(any);\nQualifier AGAIN : Uint8 = 0x2, Scope(any);"),
              "");

    ExpectFaults({
        {"[Size(4294967296)] class X {};", "a.mof:1:7: qualifier Size of class X: the number 4294967296"},
        {"[Size{1}] class X {};", "a.mof:1:6: qualifier Size of class X: an array was found"},
        {"class X { [List(1)] string P; };",
         "qualifier List of property X.P: the number 1 was found, uint8[]"},
        {"[Flag] class Y {};\n[Flag(FALSE)] class X : Y {};",
         "a.mof:2:21: qualifier Flag of class X has another"},
        {"Qualifier Odd : uint8, Scope(any);\nQualifier ODD : uint8, Scope(class);",
         "a.mof:2:11: qualifier ODD is declared otherwise in this import, at a.mof:1"},
        {"Qualifier Odd : Policy, Scope(any);", "a.mof:1:17: qualifier Odd cannot be of type \"Policy\""},
        {"Qualifier Odd : uint8 = 256, Scope(any);",
         "a.mof:1:25: the value of qualifier Odd: the number 256"},
    });
}

TEST_F(MofSchema, MethodsAreKeptWithTheirParameters) {
    ASSERT_EQ(Run(R"(
        class Base { [Static : Restricted, Description("b")] uint32 Start([in] string How[4], [out] Later ref Made); };
        class Sub : Base { [Override("Start")] uint32 START([Units("ms")] datetime HOW, Part Piece); void Stop();
                           [EmbeddedInstance("Part")] string Take([EmbeddedObject] string Any); };
        class Later { [key] string ID; }; class Part {};)"),
              "");
    const ClassPtr sub = target.Class("Sub");
    ASSERT_EQ(sub->Methods().size(), 3U);
    const MethodDefinition& start = *sub->FindMethod("start");
    EXPECT_EQ(start.origin, "Base");
    EXPECT_TRUE(start.is_local);
    EXPECT_FALSE(FindQualifier(start.qualifiers, "Static"));
    EXPECT_TRUE(FindQualifier(start.qualifiers, "Description"));
    ASSERT_EQ(start.parameters.size(), 2U);
    EXPECT_TRUE(FindQualifier(start.parameters[0].qualifiers, "in")) << "inherited by name";
    EXPECT_EQ(DescribeType(start.parameters[1].type), "object:Part");
    EXPECT_EQ(DescribeType(target.Class("Base")->FindMethod("Start")->parameters[1].type), "ref:Later");
    EXPECT_FALSE(sub->FindMethod("stop")->return_type);
    EXPECT_EQ(DescribeType(*sub->FindMethod("Take")->return_type), "object:Part");
    ASSERT_EQ(Run("class Third : Sub {};"), "");
    EXPECT_FALSE(target.Class("Third")->FindMethod("START")->is_local);

    std::string many = "class A { void M(string p0";
    for (int i = 1; i < 257; ++i)
        many += ", string p" + std::to_string(i);
    ExpectFaults({
        {"class A { None M(); };", "a.mof:1:11: method A.M: class None is neither"},
        {"class A { void M(\nNone ref P); };", "a.mof:2:1: parameter P of method A.M: class None is neither"},
        {"class A { void M(string p, uint8 P); };", "method A.M has the parameter P twice"},
        {"class A { void M(); uint8 m(); };", "class A declares the method m twice"},
        {"class A { void M([in, IN] string Q); };", "parameter Q of method A.M has the qualifier IN twice"},
        {many + "); };", "at most 256 parameters"},
    });
}

TEST_F(MofSchema, WhatIsReadPastIsSaidOnce) {
    EXPECT_EQ(Run("#pragma locale(\"en_US\")\n#pragma LOCALE(\"de\")\n#pragma autorecover\n"
                  "class A { [key] string K; void M(uint8 P = 5); };\n[x] instance of A { [y] K = \"a\"; };"),
              "");
    EXPECT_THAT(warnings,
                ElementsAre("a.mof:1:9: #pragma locale has no effect here",
                            "a.mof:2:9: #pragma LOCALE has no effect here",
                            "a.mof:3:9: #pragma autorecover has no effect here",
                            "a.mof:4:42: the defaults of parameters are not kept",
                            "a.mof:5:1: the qualifiers of instances and of their values are not kept"));
}

TEST_F(MofSchema, DeletionsComeOutInTheOrderOfTheText) {
    ASSERT_EQ(Run("class A { [key] uint32 K; }; class B : A {}; instance of B { K = 1; };"), "");
    target.calls.clear();
    ASSERT_EQ(Run(R"(instance of A { K = 2; };
        #pragma deleteinstance("B.K=1", FAIL)
        #pragma DeleteClass("B", nofail)
        #pragma deleteclass("None", NOFAIL)
        #pragma deleteinstance("\\\\.\\root\\test:A.K=2")
        #pragma deleteinstance("A.K=3", nofail)
        instance of A { K = 2; };
        class B : A { uint8 More; };)"),
              "");
    EXPECT_THAT(target.calls,
                ElementsAre("use root\\test", "delete instance B.K=1", "delete class B", "delete class None",
                            "class B", "instance A.K=2", "delete instance A.K=2", "delete instance A.K=3",
                            "instance A.K=2"));
    EXPECT_TRUE(warnings.empty());
    target.refused = "A";
    EXPECT_EQ(Run("#pragma deleteclass(\"A\", nofail)"), "");
    EXPECT_THAT(warnings, ElementsAre("a.mof:1:21: nothing is deleted: it has instances"));

    ExpectFaults({
        {"#pragma deleteclass(\"A\")", "a.mof:1:21: it has instances"},
        {"#pragma deleteclass(\"None\", fail)", "there is no class None"},
        {"#pragma deleteclass(\"1\")", "cannot name a class"},
        {"#pragma deleteinstance(\"A.K=99\")", "a.mof:1:24: there is no such instance"},
        {"#pragma deleteinstance(\"A\", nofail)", "names a class"},
        {"#pragma deleteinstance(\"A.K=\")", "a.mof:1:24: "},
        {"#pragma deleteclass(\"A\", maybe)", "\"fail\" or \"nofail\" was expected"},
        {"class C {};\n#pragma deleteclass(\"c\")",
         "a.mof:2:21: class c is deleted here behind a declaration"},
        {"instance of B { K = 1; };\n#pragma deleteclass(\"B\")",
         "a.mof:2:21: class B is deleted here behind"},
        {"instance of B { K = 1; };\n#pragma deleteinstance(\"B.K=2\")\n#pragma deleteclass(\"C\")",
         "a.mof:2:24: the instance is deleted"},
    });
}

TEST_F(MofSchema, FlagsHoldFromWhereTheyStand) {
    ASSERT_EQ(Run(R"(class A { [key] string K; };
        #pragma classflags("forceupdate", "UPDATEONLY")
        #pragma instanceflags("createonly")
        class B {}; instance of A { K = "a"; };
        #pragma classflags("safeupdate")
        class C {};)"),
              "");
    EXPECT_THAT(target.calls, ElementsAre("use root\\test", "class A", "class B update-only forced",
                                          "class C", "instance A.K=\"a\" create-only"));
    ExpectFaults({
        {"#pragma classflags(\"often\")", "a.mof:1:20: \"forceupdate\", \"safeupdate\""},
        {"#pragma instanceflags(\"forceupdate\")", "\"updateonly\" or \"createonly\""},
        {"#pragma classflags(\"updateonly\", \"createonly\")", "exclude each other"},
    });
}

TEST_F(MofSchema, ObjectsMayBeWrittenAsTexts) {
    ASSERT_EQ(Run(R"(class Part { string S; Part P; }; class Wide : Part {};
        class A { [key] uint32 K; [EmbeddedInstance("Part")] string P; [EmbeddedObject] string O[]; Part Q; };
        instance of A { K = 1; P = "instance of Wide {\n" "  S = \"a\\\\\\\"b\\\"\";\n" "};";
                        O = {"instance of Part { P = \"instance of Part {};\"; }", NULL, instance of Part {}};
                        Q = "instance of Part {}"; };)"),
              "");
    const Instance& made = *target.FindInstance("A.K=1");
    const auto part = std::get<ObjectPtr>(ValueOf(made, "P"));
    EXPECT_EQ(part->Class()->Name(), "Wide");
    EXPECT_TRUE(SameValue(ValueOf(*part, "S"), "a\\\"b\""s));
    const auto objects = std::get<Array>(ValueOf(made, "O"));
    EXPECT_EQ(std::get<ObjectPtr>(ValueOf(*std::get<ObjectPtr>(objects.at(0)), "P"))->Class()->Name(),
              "Part");

    ExpectFaults(
        {
            {R"("Part"; };)",
             "a.mof:2:6: property A.P: the text \"Part\" was found, an embedded object is written"},
            {R"("instance of Part {\n T = 1; };"; };)",
             "a.mof:2:6: property A.P: in the text of the object, at line 2, column 2: class Part has no "
             "property T"},
            {R"("instance of Part { S };"; };)",
             "in the text of the object, at line 1, column 22: \"=\" was expected"},
            {R"("instance of Part {}; instance of Part {};"; };)",
             "column 22: the end of the text was expected"},
            {R"("instance of None {}"; };)", "class None is neither declared"},
            {R"("instance of A {}"; };)", "an object of class A was found, one of class Part"},
        },
        "instance of A { K = 2;\n P = ");
}

}  // namespace
}  // namespace service
