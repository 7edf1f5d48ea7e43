#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/language/memory_target.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

// Imports `text` and expects no fault.
MofSummary ImportSound(MemoryTarget& target, std::string_view text) {
    const MofImport import = Import(target, text);
    EXPECT_EQ(FaultIn(import), "");
    return import.summary;
}

const PropertyDefinition& Property(const ClassPtr& definition, std::string_view name) {
    return definition->Properties().at(definition->FindProperty(name).value());
}

TEST(MofCompiler, QualifiersHaveTheTypesAndFlavorsThatTheySay) {
    MemoryTarget target;
    ImportSound(target,
                R"([A, B(FALSE), C("x"), D(-5), E(2147483648), F(18446744073709551615), G(1.5), H('x'),
        I{}, J{1, -3, 4294967296}, K{NULL, "b"}, L(NULL), M : ToInstance DisableOverride, N : Restricted Translatable,
        O : NotToSubclass ToSubclass, Abstract, P{1, 0.5}]
        class Q {};)");
    const std::vector<std::tuple<std::string, std::string, Value, uint32_t>> cases{
        {"a", "boolean", true, kFlavorToSubclass},
        {"B", "boolean", false, kFlavorToSubclass},
        {"C", "string", "x"s, kFlavorToSubclass},
        {"D", "sint32", int64_t{-5}, kFlavorToSubclass},
        {"E", "sint64", int64_t{2147483648}, kFlavorToSubclass},
        {"F", "uint64", uint64_t{18446744073709551615U}, kFlavorToSubclass},
        {"G", "real64", 1.5, kFlavorToSubclass},
        {"H", "char16", uint64_t{'x'}, kFlavorToSubclass},
        {"I", "string[]", Array{}, kFlavorToSubclass},
        {"J", "sint64[]", Array{int64_t{1}, int64_t{-3}, int64_t{4294967296}}, kFlavorToSubclass},
        {"K", "string[]", Array{std::monostate(), "b"s}, kFlavorToSubclass},
        {"L", "string", std::monostate(), kFlavorToSubclass},
        {"M", "boolean", true, kFlavorToInstance | kFlavorToSubclass | kFlavorNotOverridable},
        {"N", "boolean", true, kFlavorAmended},
        {"O", "boolean", true, kFlavorToSubclass},
        {"P", "real64[]", Array{1.0, 0.5}, kFlavorToSubclass},
        {"Abstract", "boolean", true, 0},
    };
    for (const auto& [name, type, value, flavor] : cases) {
        const Qualifier* found = FindQualifier(target.Class("q")->Declaration().qualifiers, name);
        ASSERT_TRUE(found) << name;
        EXPECT_EQ(DescribeType(found->type), type) << name;
        EXPECT_TRUE(SameValue(found->value, value)) << name;
        EXPECT_EQ(found->flavor, flavor) << name;
    }
}

TEST(MofCompiler, InstancesWithEmbeddedObjects) {
    MemoryTarget target;
    ImportSound(target, R"(
        class Setting { [Key] string ID; boolean Enabled = TRUE; };
        class Schedule { uint32 Hours[]; }; class NightSchedule : Schedule {};
        class Policy : Setting { Schedule Plan; object Any; [EmbeddedInstance("Schedule")] string Plans[]; };
        INSTANCE OF policy { id = "mail"; PLANS = {instance of Schedule {}, NULL, instance of NightSchedule {}};
            Any = instance of Policy { Plan = instance of Schedule { Hours = {1}; }; }; };)");
    const Instance* policy = target.FindInstance("Policy.ID=\"mail\"");
    ASSERT_TRUE(policy);
    EXPECT_TRUE(SameValue(ValueOf(*policy, "Enabled"), true));
    const auto plans = std::get<Array>(ValueOf(*policy, "Plans"));
    ASSERT_EQ(plans.size(), 3U);
    EXPECT_EQ(std::get<ObjectPtr>(plans[2])->Class()->Name(), "NightSchedule");
    const auto any = std::get<ObjectPtr>(ValueOf(*policy, "Any"));
    EXPECT_EQ(std::get<ObjectPtr>(ValueOf(*any, "Plan"))->Class()->Name(), "Schedule");

    ImportSound(target, "class Strict : Policy { [Override(\"Plans\")] string Plans[]; };");
    EXPECT_EQ(DescribeType(Property(target.Class("Strict"), "Plans").type), "object:Schedule[]");
    EXPECT_THAT(FaultIn(Import(target, "class Wrong : Policy {\n string Plan; };")),
                HasSubstr("is declared as string, but Policy declares it as object:Schedule"));
}

TEST(MofCompiler, OrderDoesNotMatter) {
    std::vector<std::string> declarations{"class D : C { A ref First; };",
                                          "class C : b { D ref Last; };",
                                          "class B : A { E Inner; };",
                                          "class A { [key] uint32 K; };",
                                          "class E { E Next; string Text; };",
                                          "class F : D { E Given = instance of e { Text = \"x\"; }; };",
                                          "instance of F { K = 1; First = $Other; };",
                                          "instance of A as $other { K = 2; };"};
    std::mt19937 random(11);
    for (int round = 0; round < 50; ++round) {
        std::shuffle(declarations.begin(), declarations.end(), random);
        std::string texts[2];
        for (size_t i = 0; i < declarations.size(); ++i)
            texts[declarations[i].starts_with("instance") ? 0 : i % 2] += declarations[i];
        const MofSource sources[] = {{"one.mof", texts[0]}, {"two.mof", texts[1]}};
        MemoryTarget target;
        const MofImport import = CompileMof(sources, "root\\test", target);
        ASSERT_EQ(FaultIn(import), "") << texts[0] << '\n' << texts[1];
        EXPECT_EQ(target.Class("F")->Derivation(), (std::vector<std::string>{"D", "C", "B", "A"}));
        EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("F.K=1"), "First"), "A.K=2"s));
        const auto given = std::get<ObjectPtr>(Property(target.Class("F"), "Given").default_value);
        EXPECT_TRUE(SameValue(ValueOf(*given, "Text"), "x"s));
    }
}

TEST(MofCompiler, NamespacesAreMadeAndHaveTheirOwnClasses) {
    MemoryTarget target;
    const MofSummary summary = ImportSound(target, R"(
        instance of Box as $InB { Number = 1; };
        class Box { [key] uint32 Number; };
        instance of __namespace { NAME = "Child"; };
        #pragma namespace("\\\\.\\root\\Other")
        class Box { [key] string Name; object ref Next; };
        instance of Box as $InOther { Name = "a\\b"; Next = $inb; };
        #pragma namespace("//./ROOT/test")
        class Link { [key] object ref To; };
        instance of Link { To = $InOther; };
        instance of Link { To = $InB; };
        #pragma namespace("root\\unused"))");
    EXPECT_EQ(summary.namespaces, 1U);
    EXPECT_EQ(summary.classes, 3U);
    EXPECT_EQ(summary.instances, 4U);
    EXPECT_TRUE(target.namespaces.contains("root\\test\\child"));
    EXPECT_TRUE(target.namespaces.contains("root\\unused"));
    EXPECT_TRUE(target.FindInstance(R"(Link.To="\\\\.\\root\\Other:Box.Name=\"a\\\\b\"")"));
    EXPECT_TRUE(target.FindInstance(R"(Link.To="Box.Number=1")"));
    const Instance& other = target.namespaces["root\\other"].instances.at(R"(Box.Name="a\\b")");
    EXPECT_TRUE(SameValue(ValueOf(other, "Next"), R"(\\.\root\test:Box.Number=1)"s));

    // A namespace that only the default names, and in which nothing is declared, is left alone.
    MemoryTarget untouched;
    ImportSound(untouched, "#pragma namespace(\"root\\\\only\") class A {};");
    EXPECT_THAT(untouched.calls, ElementsAre("use root\\only", "class A"));
}

TEST(MofCompiler, EverySourceBeginsInTheDefaultNamespaceWithItsOwnAliases) {
    const std::vector<MofSource> sources{
        {"a.mof",
         "#pragma namespace(\"root\\\\other\") class A { [key] uint32 K; }; instance of A as $X { K = 1; };"},
        {"b.mof", "class B { [key] uint32 K; B ref R; }; instance of B as $X { K = 2; R = $X; };"}};
    MemoryTarget target;
    EXPECT_EQ(FaultIn(CompileMof(sources, "root\\test", target)), "");
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("B.K=2"), "R"), "B.K=2"s));
    const std::vector<MofSource> strangers{{"a.mof", "instance of B { K = 3; R = $X; };"},
                                           {"b.mof", "instance of B as $X { K = 2; };"}};
    EXPECT_EQ(FaultIn(CompileMof(strangers, "root\\test", target)),
              "a.mof:1:28: no declaration of this source has the alias $X");
}

TEST(MofCompiler, AliasesThroughKeysAndDefaults) {
    MemoryTarget target;
    ImportSound(target, R"(
        class Policy as $PolicyClass { [key] string INSTANCE_ID = "default"; };
        [Association] class Applies { [key] Policy ref Policy; [key] object ref To; };
        [Singleton] class Global { object ref Current; };
        instance of Global as $Global { Current = $First; };
        instance of Applies as $First { Policy = $Default; To = $Global; };
        instance of Applies { Policy = $Default; To = $First; };
        instance of Applies { Policy = $Default; To = $PolicyClass; };
        instance of Policy as $Default {};)");
    const std::string start = R"(Applies.Policy="Policy.INSTANCE_ID=\"default\"",To=)";
    const std::string first = start + R"("Global=@")";
    EXPECT_TRUE(target.FindInstance(first));
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("Global=@"), "Current"), first));
    EXPECT_TRUE(target.FindInstance(start + QuoteForPath(first)));
    EXPECT_TRUE(target.FindInstance(start + "\"Policy\""));
}

TEST(MofCompiler, ChainsOfKeysAreLimitedInBothDirections) {
    // Each instance's key is a reference to the one behind it.
    const auto chain = [](size_t length) {
        std::string text = "class L { [key] object ref To; };";
        for (size_t i = 0; i < length; ++i) {
            text.append("instance of L as $a").append(std::to_string(i));
            text.append(" { To = $a").append(std::to_string(i + 1)).append("; };\n");
        }
        return text + "instance of L as $a" + std::to_string(length) + " { To = \"end\"; };";
    };
    MemoryTarget target;
    ImportSound(target, chain(8));
    EXPECT_THAT(FaultIn(Import(target, chain(20))), HasSubstr("bytes"));
    EXPECT_THAT(FaultIn(Import(target, chain(100'000))), HasSubstr("depend on one another"));
    EXPECT_THAT(
        FaultIn(Import(target, "instance of L as $x { To = $y; }; instance of L as $y { To = $x; };")),
        HasSubstr("depends on itself"));
}

TEST(MofCompiler, FaultsNameThePlaceAndTheThing) {
    const std::vector<std::tuple<std::string, size_t, size_t, int32_t, std::string>> cases{
        {"class A : Missing {};", 1, 11, WBEM_E_INVALID_SUPERCLASS, "class Missing is neither declared"},
        {"class A : A {};", 1, 7, WBEM_E_INVALID_SUPERCLASS, "A needs A"},
        {"class X : C {};\nclass A : B {};\nclass B : C {};\nclass C : A {};\n", 2, 7,
         WBEM_E_INVALID_SUPERCLASS, "A needs B needs C needs A"},
        {"class A { [key] string K; };\nclass B : C {};\nclass C { B Inner = instance of B {}; };", 2, 7,
         WBEM_E_INVALID_SUPERCLASS, "B needs C needs B"},
        {"class A { Missing ref R; };", 1, 11, WBEM_E_INVALID_CLASS, "property A.R: class Missing"},
        {"class A { [EmbeddedInstance(\"No\")] string E; };", 1, 29, WBEM_E_INVALID_CLASS, "class No is"},
        {"class A { [EmbeddedInstance] string E; };", 1, 12, WBEM_E_TYPE_MISMATCH, "the name of a class"},
        {"class A { [EmbeddedObject(5)] string E; };", 1, 12, WBEM_E_TYPE_MISMATCH, "TRUE or FALSE"},
        {"class A { [EmbeddedObject] uint8 E; };", 1, 12, WBEM_E_INVALID_PROPERTY_TYPE, "of type string"},
        {"class A { string ref R; };", 1, 11, WBEM_E_INVALID_PROPERTY_TYPE, "\"string\" is none"},
        {"class UInt32 {};", 1, 7, WBEM_E_INVALID_OBJECT, "\"UInt32\" cannot name a class, it names a type"},
        {"class void {};", 1, 7, WBEM_E_INVALID_OBJECT, "names a type"},
        {"class A {};\nclass a {};", 2, 7, WBEM_E_ALREADY_EXISTS, "twice in this import, first at a.mof:1"},
        {"[Values{\"a\", 1}] class A {};", 1, 8, WBEM_E_TYPE_MISMATCH, "Values of class A: element 1: the"},
        {"class A { uint8 P[2] = {1,2,3}; };", 1, 24, WBEM_E_TYPE_MISMATCH,
         "default of property A.P: the array"},
        {"class A { A ref P = $X; };", 1, 21, WBEM_E_TYPE_MISMATCH, "an alias cannot be the default"},
        {"class A { string P; string p; };", 1, 7, WBEM_E_INVALID_OBJECT, "declares the property p twice"},
        {"class Refused {};", 1, 7, WBEM_E_ACCESS_DENIED, "the target refuses it"},
        {"instance of Missing {};", 1, 13, WBEM_E_INVALID_CLASS, "known in namespace root\\test"},
        {"instance of Known {\n K = 1; No = 2; };", 2, 9, WBEM_E_NOT_FOUND, "class Known has no property No"},
        {"instance of Known { K = 1;\n k = 2; };", 2, 2, WBEM_E_INVALID_OBJECT, "Known.K is given a second"},
        {"class A { uint8 P[] = {1, NULL}; };", 1, 23, WBEM_E_TYPE_MISMATCH, "element 1 is null"},
        {"instance of Known {};", 1, 13, WBEM_E_ILLEGAL_NULL, "has no value"},
        {"instance of Known { K = 1; E = instance of Known {}; };", 1, 44, WBEM_E_TYPE_MISMATCH,
         "property Known.E: an object of class Known was found, one of class Inner"},
        {"instance of Inner { P = $x; };\ninstance of Inner as $X {};", 2, 22, WBEM_E_INVALID_OBJECT,
         "no key"},
        {"instance of Known as $X { K = 1; };\ninstance of Known as $x { K = 2; };", 2, 22,
         WBEM_E_ALREADY_EXISTS, "the alias $x stands for another"},
        {"#pragma include(\"other.mof\")", 1, 17, WBEM_E_NOT_SUPPORTED, "the file \"other.mof\" is not read"},
        {"#pragma namespace(\"root\\\\a b\")", 1, 19, WBEM_E_INVALID_NAMESPACE, "is no namespace path"},
        {"instance of __Namespace { Name = 5; };", 1, 34, WBEM_E_TYPE_MISMATCH, "takes a text"},
        {"instance of __Namespace { Name = \"a/b\"; };", 1, 34, WBEM_E_INVALID_NAMESPACE, "cannot name a"},
        {"instance of __Namespace { };", 1, 13, WBEM_E_INVALID_OBJECT, "one property, Name"},
    };
    for (const auto& [text, line, column, code, fragment] : cases) {
        MemoryTarget target;
        ImportSound(target,
                    "class Known { [key] uint32 K; Inner E; object ref R; }; class Inner { object ref P; };");
        target.calls.clear();
        target.refused = "refused";
        const MofImport import = Import(target, text);
        ASSERT_TRUE(import.fault) << text;
        EXPECT_THAT(import.fault->message, HasSubstr(fragment)) << text;
        EXPECT_EQ(std::tie(import.fault->line, import.fault->column), std::tie(line, column)) << text;
        EXPECT_EQ(import.fault->code, code) << text;
        EXPECT_NE(import.fault->phase, MofPhase::kParse) << text;
        EXPECT_TRUE(fragment.find(" needs ") == std::string::npos || target.calls.empty()) << text;
    }
    MemoryTarget target;
    const MofImport import = CompileMof({}, "root\\", target);
    ASSERT_TRUE(import.fault);
    EXPECT_EQ(import.fault->code, WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(import.fault->line, 0U);
}

TEST(MofCompiler, OversizedClassesAreRefusedWithoutDelay) {
    std::string properties, qualifiers = "[q";
    for (int i = 0; i < 300'000; ++i) {
        properties += "string p" + std::to_string(i) + "; ";
        qualifiers += ", q" + std::to_string(i);
    }
    const std::vector<std::pair<std::string, std::string>> cases{
        {"class A {" + properties + "};", "more than 4096 properties"},
        {qualifiers + "] class A {};", "more than 1024 qualifiers"},
        {"class A {" + qualifiers + "] string P; };", "more than 1024 qualifiers"},
        {"class x" + std::string(253, 'y') + "\u20ac {};", "a name has at most 255 bytes"},
    };
    for (const auto& [text, fragment] : cases) {
        MemoryTarget target;
        const MofImport import = Import(target, text);
        EXPECT_THAT(FaultIn(import), HasSubstr(fragment));
        EXPECT_EQ(import.fault->phase, MofPhase::kStore);
    }
}

TEST(MofCompiler, AnUpdatedClassIsSeenByTheInstancesBehindIt) {
    MemoryTarget target;
    ImportSound(target, "class A { [key] uint32 K; };");
    std::vector<std::pair<size_t, size_t>> reported;
    MofOptions options;
    options.progress_interval = 2;
    options.progress = [&](size_t done, size_t total) { reported.emplace_back(done, total); };
    constexpr std::string_view kText =
        "instance of A { K = 1; Added = 5; }; class A { [key] uint32 K; uint8 Added; }; instance of A { K = "
        "2; };";
    EXPECT_EQ(FaultIn(Import(target, kText, options)), "");
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("A.K=1"), "Added"), uint64_t{5}));
    EXPECT_THAT(reported, ElementsAre(std::pair(2, 3), std::pair(3, 3)));
}

}  // namespace
}  // namespace service
