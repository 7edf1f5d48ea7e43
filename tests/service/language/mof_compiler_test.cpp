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
    EXPECT_FALSE(import.fault) << Describe(*import.fault);
    return import.summary;
}

const PropertyDefinition& Property(const ClassPtr& definition, std::string_view name) {
    return definition->Properties().at(definition->FindProperty(name).value());
}

constexpr std::string_view kSchema = R"(
[Abstract, Description("What all settings have") : Amended]
class Setting {
    [Key, Read, MaxLen(64)] string INSTANCE_ID;
    [Description("Shown " "to people")] string DisplayName;
    boolean Enabled = TRUE;
};

class Schedule { uint32 Hours[]; datetime Since; };
class NightSchedule : Schedule { boolean Weekends = FALSE; };

[Version("2.1") : Restricted]
class RetentionPolicy : Setting {
    [not_null] uint64 KeepDays = 30;
    string Tags[4] = {"mail", "files"};
    Schedule Plan;
    object Anything;
    [EmbeddedInstance("Schedule")] string Plans[];
    [EmbeddedObject] string Other;
    RetentionPolicy ref Parent;
    object ref Owner;
    [ValueMap{"0", "1"}, Values{"off", "on"}] uint8 Mode;
};
)";

TEST(MofCompiler, ClassesArriveAsDeclared) {
    MemoryTarget target;
    EXPECT_EQ(ImportSound(target, kSchema).classes, 4U);
    const ClassPtr policy = target.Class("retentionpolicy");
    ASSERT_TRUE(policy);
    EXPECT_EQ(policy->Superclass()->Name(), "Setting");
    EXPECT_TRUE(policy->Superclass()->IsAbstract());
    EXPECT_FALSE(policy->IsAbstract());
    EXPECT_EQ(policy->Keys().size(), 1U);

    const std::vector<std::pair<std::string, std::string>> types{{"INSTANCE_ID", "string"},
                                                                 {"Enabled", "boolean"},
                                                                 {"KeepDays", "uint64"},
                                                                 {"Tags", "string[4]"},
                                                                 {"Plan", "object:Schedule"},
                                                                 {"Anything", "object"},
                                                                 {"Plans", "object:Schedule[]"},
                                                                 {"Other", "object"},
                                                                 {"Parent", "ref:RetentionPolicy"},
                                                                 {"Owner", "ref"},
                                                                 {"Mode", "uint8"}};
    for (const auto& [name, type] : types)
        EXPECT_EQ(DescribeType(Property(policy, name).type), type) << name;
    EXPECT_TRUE(SameValue(Property(policy, "KeepDays").default_value, uint64_t{30}));
    EXPECT_TRUE(SameValue(Property(policy, "Tags").default_value, Array{"mail"s, "files"s}));
    EXPECT_TRUE(IsNull(Property(policy, "Plan").default_value));
    EXPECT_TRUE(Property(policy, "KeepDays").is_not_null);
}

TEST(MofCompiler, QualifiersHaveTheTypesAndFlavorsThatTheySay) {
    MemoryTarget target;
    ImportSound(target,
                R"([A, B(FALSE), C("x"), D(-5), E(2147483648), F(18446744073709551615), G(1.5), H('x'),
        I{}, J{1, -3, 4294967296}, K{NULL, "b"}, L(NULL), M : ToInstance DisableOverride, N : Restricted Translatable,
        O : NotToSubclass ToSubclass, Abstract]
        class Q {};)");
    const ClassPtr definition = target.Class("Q");
    ASSERT_TRUE(definition);
    const auto& own = definition->Declaration().qualifiers;
    const auto expect = [&](std::string_view name, const std::string& type, const Value& value,
                            uint32_t flavor) {
        const Qualifier* qualifier = FindQualifier(own, name);
        ASSERT_TRUE(qualifier) << name;
        EXPECT_EQ(DescribeType(qualifier->type), type) << name;
        EXPECT_TRUE(SameValue(qualifier->value, value)) << name;
        EXPECT_EQ(qualifier->flavor, flavor) << name;
    };
    expect("a", "boolean", true, kFlavorToSubclass);
    expect("B", "boolean", false, kFlavorToSubclass);
    expect("C", "string", "x"s, kFlavorToSubclass);
    expect("D", "sint32", int64_t{-5}, kFlavorToSubclass);
    expect("E", "sint64", int64_t{2147483648}, kFlavorToSubclass);
    expect("F", "uint64", uint64_t{18446744073709551615U}, kFlavorToSubclass);
    expect("G", "real64", 1.5, kFlavorToSubclass);
    expect("H", "char16", uint64_t{'x'}, kFlavorToSubclass);
    expect("I", "string[]", Array{}, kFlavorToSubclass);
    expect("J", "sint64[]", Array{int64_t{1}, int64_t{-3}, int64_t{4294967296}}, kFlavorToSubclass);
    expect("K", "string[]", Array{std::monostate(), "b"s}, kFlavorToSubclass);
    expect("L", "string", std::monostate(), kFlavorToSubclass);
    expect("M", "boolean", true, kFlavorToInstance | kFlavorToSubclass | kFlavorNotOverridable);
    expect("N", "boolean", true, kFlavorAmended);
    expect("O", "boolean", true, kFlavorToSubclass);
    expect("Abstract", "boolean", true, 0);

    const MofImport mixed = Import(target, "[Values{\"a\", 1}] class Mixed {};");
    ASSERT_TRUE(mixed.fault);
    EXPECT_THAT(mixed.fault->message,
                HasSubstr("qualifier Values of class Mixed: element 1: the number 1 was found"));
}

TEST(MofCompiler, InstancesWithEmbeddedObjects) {
    MemoryTarget target;
    ImportSound(target, kSchema);
    const MofSummary summary = ImportSound(target, R"(
        INSTANCE OF retentionpolicy {
            instance_id = "mail";
            KEEPDAYS = 90;
            Plan = instance of NightSchedule { Hours = {22, 23}; weekends = TRUE; };
            Plans = {instance of Schedule {}, NULL, instance of NightSchedule { Hours = {1}; }};
            Anything = instance of RetentionPolicy { INSTANCE_ID = "copy"; Plan = instance of Schedule { Hours = {}; }; };
            Parent = "RetentionPolicy.INSTANCE_ID=\"all\"";
        };)");
    EXPECT_EQ(summary.instances, 1U);
    const Instance* policy = target.FindInstance(R"(RetentionPolicy.INSTANCE_ID="mail")");
    ASSERT_TRUE(policy);
    EXPECT_TRUE(SameValue(ValueOf(*policy, "KeepDays"), uint64_t{90}));
    EXPECT_TRUE(SameValue(ValueOf(*policy, "Enabled"), true));
    EXPECT_TRUE(SameValue(ValueOf(*policy, "Parent"), R"(RetentionPolicy.INSTANCE_ID="all")"s));

    const auto plan = std::get<ObjectPtr>(ValueOf(*policy, "Plan"));
    EXPECT_EQ(plan->Class()->Name(), "NightSchedule");
    EXPECT_TRUE(SameValue(ValueOf(*plan, "Hours"), Array{uint64_t{22}, uint64_t{23}}));
    EXPECT_TRUE(SameValue(ValueOf(*plan, "Weekends"), true));
    const auto plans = std::get<Array>(ValueOf(*policy, "Plans"));
    ASSERT_EQ(plans.size(), 3U);
    EXPECT_EQ(std::get<ObjectPtr>(plans[2])->Class()->Name(), "NightSchedule");
    const auto anything = std::get<ObjectPtr>(ValueOf(*policy, "Anything"));
    EXPECT_EQ(std::get<ObjectPtr>(ValueOf(*anything, "Plan"))->Class()->Name(), "Schedule");
}

TEST(MofCompiler, ARedeclaredEmbeddedStringKeepsTheInheritedType) {
    MemoryTarget target;
    ImportSound(target, kSchema);
    ImportSound(target,
                R"(class Strict : RetentionPolicy { [Override("Plans")] string Plans[]; string Other; };)");
    EXPECT_EQ(DescribeType(Property(target.Class("Strict"), "Plans").type), "object:Schedule[]");
    EXPECT_EQ(DescribeType(Property(target.Class("Strict"), "Other").type), "object");
    const MofImport import = Import(target, "class Wrong : RetentionPolicy {\n string Plan; };");
    ASSERT_TRUE(import.fault);
    EXPECT_THAT(import.fault->message,
                HasSubstr("is declared as string, but RetentionPolicy declares it as object:Schedule"));
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
    std::sort(declarations.begin(), declarations.end());
    std::mt19937 random(11);
    for (int round = 0; round < 50; ++round) {
        std::shuffle(declarations.begin(), declarations.end(), random);
        // In one source or two.
        std::vector<std::string> texts(1 + round % 2);
        for (size_t i = 0; i < declarations.size(); ++i) {
            const bool is_instance = declarations[i].starts_with("instance");
            texts[is_instance ? 0 : i % texts.size()] += declarations[i] + "\n";
        }
        std::vector<MofSource> sources;
        sources.reserve(texts.size());
        for (const std::string& text : texts)
            sources.push_back({"part.mof", text});
        MemoryTarget target;
        const MofImport import = CompileMof(sources, "root\\test", target);
        ASSERT_FALSE(import.fault) << Describe(*import.fault) << texts.front();
        EXPECT_EQ(import.summary.classes, 6U);
        EXPECT_EQ(target.Class("F")->Derivation(), (std::vector<std::string>{"D", "C", "B", "A"}));
        EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("F.K=1"), "First"), "A.K=2"s));
        const auto given = std::get<ObjectPtr>(Property(target.Class("F"), "Given").default_value);
        EXPECT_TRUE(SameValue(ValueOf(*given, "Text"), "x"s));
    }
}

TEST(MofCompiler, ClassesThatDeriveInACircle) {
    const std::vector<std::tuple<std::string, size_t, std::string>> cases{
        {"class A : A {};", 1, "A needs A"},
        {"class X : C {};\nclass A : B {};\nclass B : C {};\nclass C : A {};\n", 2,
         "A needs B needs C needs A"},
        {"class A { [key] string K; };\nclass B : C {};\nclass C { B Inner = instance of B {}; };", 2,
         "B needs C needs B"},
    };
    for (const auto& [text, line, fragment] : cases) {
        MemoryTarget target;
        const MofImport import = Import(target, text);
        ASSERT_TRUE(import.fault) << text;
        EXPECT_THAT(import.fault->message, HasSubstr(fragment));
        EXPECT_EQ(import.fault->line, line);
        EXPECT_EQ(import.fault->code, WBEM_E_INVALID_SUPERCLASS);
        EXPECT_THAT(target.calls, ElementsAre()) << "nothing reaches the target";
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
    std::vector<std::string> spaces;
    for (const auto& [path, space] : target.namespaces)
        spaces.push_back(path);
    EXPECT_THAT(spaces, ElementsAre("root\\other", "root\\test", "root\\test\\child", "root\\unused"));
    EXPECT_THAT(target.calls,
                testing::Contains(R"(instance Link.To="\\\\.\\root\\Other:Box.Name=\"a\\\\b\"")"));
    EXPECT_THAT(target.calls, testing::Contains(R"(instance Link.To="Box.Number=1")"));
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
    const MofImport import = CompileMof(sources, "root\\test", target);
    ASSERT_FALSE(import.fault) << Describe(*import.fault);
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("B.K=2"), "R"), "B.K=2"s));

    const std::vector<MofSource> strangers{
        {"a.mof", "class A { [key] A ref R; }; instance of A { R = $X; };"},
        {"b.mof", "class B { [key] uint32 K; }; instance of B as $X { K = 2; };"}};
    const MofImport failed = CompileMof(strangers, "root\\test", target);
    ASSERT_TRUE(failed.fault);
    EXPECT_EQ(Describe(*failed.fault), "a.mof:1:49: no declaration of this source has the alias $X");
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
    const std::string first = R"(Applies.Policy="Policy.INSTANCE_ID=\"default\"",To="Global=@")";
    EXPECT_TRUE(target.FindInstance(first));
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("Global=@"), "Current"), first));
    EXPECT_TRUE(
        target.FindInstance(R"(Applies.Policy="Policy.INSTANCE_ID=\"default\"",To=)" + QuoteForPath(first)));
    EXPECT_TRUE(target.FindInstance(R"(Applies.Policy="Policy.INSTANCE_ID=\"default\"",To="Policy")"));
}

// Each instance's key is a reference to the one behind it.
std::string ChainOfKeys(size_t length) {
    std::string text = "class L { [key] object ref To; };";
    for (size_t i = 0; i < length; ++i) {
        text += "instance of L as $a" + std::to_string(i) + " { To = $a" + std::to_string(i + 1) + "; };\n";
    }
    return text + "instance of L as $a" + std::to_string(length) + " { To = \"end\"; };";
}

TEST(MofCompiler, ChainsOfKeysAreLimitedInBothDirections) {
    MemoryTarget target;
    ImportSound(target, ChainOfKeys(8));
    for (const size_t length : {20U, 100'000U}) {
        const MofImport import = Import(target, ChainOfKeys(length));
        ASSERT_TRUE(import.fault) << length;
        EXPECT_THAT(import.fault->message,
                    testing::AnyOf(HasSubstr("depend on one another"), HasSubstr("bytes")));
    }
    const MofImport circle =
        Import(target, R"(instance of L as $x { To = $y; }; instance of L as $y { To = $x; };)");
    ASSERT_TRUE(circle.fault);
    EXPECT_THAT(circle.fault->message, HasSubstr("depends on itself"));
}

TEST(MofCompiler, FaultsNameThePlaceAndTheThing) {
    const std::vector<std::tuple<std::string, size_t, size_t, int32_t, std::string>> cases{
        {"class A : Missing {};", 1, 11, WBEM_E_INVALID_SUPERCLASS, "class Missing is neither declared"},
        {"class A { Missing ref R; };", 1, 11, WBEM_E_INVALID_CLASS, "property A.R: class Missing"},
        {"class A { Missing E; };", 1, 11, WBEM_E_INVALID_CLASS, "property A.E: class Missing"},
        {"class A { [EmbeddedInstance(\"Missing\")] string E; };", 1, 29, WBEM_E_INVALID_CLASS,
         "class Missing"},
        {"class A { [EmbeddedInstance] string E; };", 1, 12, WBEM_E_TYPE_MISMATCH, "the name of a class"},
        {"class A { [EmbeddedObject(5)] string E; };", 1, 12, WBEM_E_TYPE_MISMATCH, "TRUE or FALSE"},
        {"class A { [EmbeddedObject] uint8 E; };", 1, 12, WBEM_E_INVALID_PROPERTY_TYPE,
         "of type string only"},
        {"class A { string ref R; };", 1, 11, WBEM_E_INVALID_PROPERTY_TYPE, "\"string\" is none"},
        {"class A {};\nclass a {};", 2, 7, WBEM_E_ALREADY_EXISTS,
         "class a is declared twice in this import, first at test.mof:1"},
        {"class A { uint8 P = 256; };", 1, 21, WBEM_E_TYPE_MISMATCH, "property A.P: the number 256"},
        {"class A { uint8 P[2] = {1,2,3}; };", 1, 24, WBEM_E_TYPE_MISMATCH,
         "the default of property A.P: the array has 3"},
        {"class A { A ref P = $X; };", 1, 21, WBEM_E_TYPE_MISMATCH, "an alias cannot be the default"},
        {"class A { string P; string p; };", 1, 7, WBEM_E_INVALID_OBJECT, "declares the property p twice"},
        {"class A { [key(5)] string P; };", 1, 7, WBEM_E_INVALID_OBJECT, "must be a boolean"},
        {"class Refused {};", 1, 7, WBEM_E_ACCESS_DENIED, "the target refuses it"},
        {"instance of Missing {};", 1, 13, WBEM_E_INVALID_CLASS, "known in namespace root\\test"},
        {"instance of Known {\n K = 1; Missing = 2; };", 2, 9, WBEM_E_NOT_FOUND,
         "class Known has no property Missing"},
        {"instance of Known { K = 1;\n k = 2; };", 2, 2, WBEM_E_INVALID_OBJECT,
         "property Known.K is given a second value"},
        {"class A { uint8 P[] = {1, NULL}; };", 1, 23, WBEM_E_TYPE_MISMATCH, "element 1 is null"},
        {"instance of Known {};", 1, 13, WBEM_E_ILLEGAL_NULL, "has no value"},
        {"instance of Known { K = 1; E = instance of Known {}; };", 1, 44, WBEM_E_TYPE_MISMATCH,
         "property Known.E: an object of class Known was found, one of class Inner"},
        {"instance of Known { K = 1; E = instance of Inner { X = 1; }; };", 1, 52, WBEM_E_NOT_FOUND,
         "no property X"},
        {"instance of Known { K = 1; R = $x; };\ninstance of Inner as $X {};", 2, 22, WBEM_E_INVALID_OBJECT,
         "class Inner has no key property"},
        {"instance of Known as $X { K = 1; };\ninstance of Known as $x { K = 2; };", 2, 22,
         WBEM_E_ALREADY_EXISTS, "the alias $x stands for another"},
        {"#pragma include(\"other.mof\")", 1, 17, WBEM_E_NOT_SUPPORTED, "the file \"other.mof\" is not read"},
        {"#pragma namespace(\"root\\\\a b\")", 1, 19, WBEM_E_INVALID_NAMESPACE, "is no namespace path"},
        {"instance of __Namespace { Name = 5; };", 1, 34, WBEM_E_TYPE_MISMATCH, "takes a text"},
        {"instance of __Namespace { Name = \"a\\\\b\"; };", 1, 34, WBEM_E_INVALID_NAMESPACE,
         "cannot name a namespace"},
        {"instance of __Namespace { };", 1, 13, WBEM_E_INVALID_OBJECT, "one property, Name"},
    };
    for (const auto& [text, line, column, code, fragment] : cases) {
        MemoryTarget target;
        ImportSound(target,
                    "class Known { [key] uint32 K; Inner E; object ref R; }; class Inner { string S; };");
        target.refused = "refused";
        const MofImport import = Import(target, text);
        ASSERT_TRUE(import.fault) << text;
        EXPECT_THAT(import.fault->message, HasSubstr(fragment)) << text;
        EXPECT_EQ(import.fault->line, line) << text;
        EXPECT_EQ(import.fault->column, column) << text;
        EXPECT_EQ(import.fault->code, code) << text;
        EXPECT_NE(import.fault->phase, MofPhase::kParse) << text;
    }
    MemoryTarget target;
    const MofImport import = CompileMof({}, "root\\", target);
    ASSERT_TRUE(import.fault);
    EXPECT_EQ(import.fault->code, WBEM_E_INVALID_NAMESPACE);
    EXPECT_EQ(import.fault->line, 0U);
}

TEST(MofCompiler, OversizedClassesAreRefusedWithoutDelay) {
    std::string properties;
    std::string qualifiers = "[q";
    for (int i = 0; i < 300'000; ++i) {
        properties += "string p" + std::to_string(i) + "; ";
        qualifiers += ", q" + std::to_string(i);
    }
    std::string wide_name;
    for (int i = 0; i < 200; ++i)
        wide_name += "\u20ac";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"class A {" + properties + "};", "more than 4096 properties"},
        {qualifiers + "] class A {};", "more than 1024 qualifiers"},
        {"class A {" + qualifiers + "] string P; };", "more than 1024 qualifiers"},
        {"class x" + wide_name + " {};", "a name has at most 255 bytes"},
    };
    for (const auto& [text, fragment] : cases) {
        MemoryTarget target;
        const MofImport import = Import(target, text);
        ASSERT_TRUE(import.fault) << fragment;
        EXPECT_THAT(import.fault->message, HasSubstr(fragment));
        EXPECT_TRUE(IsValidUtf8(import.fault->message));
        EXPECT_EQ(import.fault->phase, MofPhase::kStore);
    }
}

TEST(MofCompiler, AnUpdatedClassIsSeenByTheInstancesBehindIt) {
    MemoryTarget target;
    ImportSound(target, "class A { [key] uint32 K; };");
    ImportSound(target, "instance of A { K = 1; Added = 5; }; class A { [key] uint32 K; uint8 Added; };");
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("A.K=1"), "Added"), uint64_t{5}));
}

TEST(MofCompiler, LargeImportsReportTheirProgress) {
    constexpr size_t kInstances = 20'000;
    std::string text = "class P { [key] string INSTANCE_ID; P ref Next; uint32 N; };\n";
    for (size_t i = 0; i < kInstances; ++i) {
        const std::string id = std::to_string(i);
        const std::string next = std::to_string((i + 1) % kInstances);
        text.append("instance of P as $p").append(id).append(" { INSTANCE_ID = \"").append(id);
        text.append("\"; Next = $p").append(next).append("; N = ").append(id).append("; };\n");
    }
    std::vector<size_t> reported;
    MofOptions options;
    options.progress_interval = 8000;
    options.progress = [&](size_t done, size_t total) {
        EXPECT_EQ(total, kInstances + 1);
        reported.push_back(done);
    };
    const MofSource source{"large.mof", text};
    MemoryTarget target;
    const MofImport import = CompileMof({&source, 1}, "root\\test", target, options);
    ASSERT_FALSE(import.fault) << Describe(*import.fault);
    EXPECT_EQ(import.summary.instances, kInstances);
    EXPECT_THAT(reported, ElementsAre(8000, 16000, kInstances + 1));
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance(R"(P.INSTANCE_ID="19999")"), "Next"),
                          R"(P.INSTANCE_ID="0")"s));
}

}  // namespace
}  // namespace service
