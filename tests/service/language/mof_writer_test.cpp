#include "service/language/mof_writer.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/language/memory_target.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

constexpr std::string_view kSchema = R"mof([abstract, Description("What all \"rules\" have")]
class Rule
{
    [key, read, MaxLen(64)] string INSTANCE_ID;
    [Weight(0.5), Limits {-1, 5000000000}, Grade('x') : Restricted] real32 Factor = 0.1;
};

class Schedule
{
    uint8 Hours[24] = {1, 2};
};

[association : EnableOverride,
 Nothing(NULL),
 Never(FALSE) : DisableOverride Restricted ToInstance Translatable]
class Policy : Rule
{
    [Description("One sentence that goes on and on so that it takes more than a single line of "
         "text. Another.\n"
         "A third."),
     ValueMap {
         "0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13", "14", "15", "16"}]
    sint64 Mode = -9223372036854775808;
    char16 Sign = '\x0007';
    datetime Since = "20261122103000.000000+060";
    Schedule Plan;
    object Any[];
    [EmbeddedInstance("Schedule")] string Plans[];
    [EmbeddedObject] string Other;
    Rule ref Parent;
    object ref Owners[3];
};
)mof";

std::string TextOf(const ClassPtr& definition) {
    std::string text;
    EXPECT_OK(AppendClassMof(definition->Declaration(), {}, text));
    return text;
}

std::string TextOf(const Instance& instance) {
    std::string text;
    EXPECT_OK(AppendInstanceMof(instance, text));
    return text;
}

void ImportSound(MemoryTarget& target, std::string_view text) {
    const MofImport import = Import(target, text);
    ASSERT_FALSE(import.fault) << Describe(*import.fault) << '\n' << text;
}

TEST(MofWriter, ClassesAreWrittenAsTheyAreBestRead) {
    MemoryTarget target;
    ImportSound(target, kSchema);
    const std::string text = TextOf(target.Class("Rule")) + "\n" + TextOf(target.Class("Schedule")) + "\n" +
                             TextOf(target.Class("Policy"));
    EXPECT_EQ(text, kSchema);

    std::string plain;
    ASSERT_OK(AppendClassMof(target.Class("Policy")->Declaration(), {false, {}}, plain));
    EXPECT_THAT(plain, HasSubstr("[association, Nothing(NULL), Never(FALSE)]\n"));
    // A flavor is said where it differs from the one that the qualifier is declared with.
    std::string declared;
    const MofForm form{true, [](std::string_view) { return kFlavorNotOverridable | kFlavorToSubclass; }};
    ASSERT_OK(AppendClassMof(target.Class("Rule")->Declaration(), form, declared));
    EXPECT_THAT(declared, HasSubstr("[key, read : EnableOverride, MaxLen(64) : EnableOverride]"));
}

TEST(MofWriter, MethodsAndQualifierDeclarationsAreWritten) {
    ClassDeclaration declaration = Declare("Tool", {});
    MethodDeclaration run{"Run", PropertyType{CimType::kUint32, false, 0, {}}, {}, {Flag("static")}};
    run.parameters.push_back({"Names", {CimType::kString, true, 8, {}}, {Flag("In")}});
    run.parameters.push_back({"Made", {CimType::kReference, false, 0, "Tool"}, {Flag("Out")}});
    run.parameters.push_back({"Plan", {CimType::kObject, false, 0, {}}, {}});
    declaration.methods = {run, {"Stop", std::nullopt, {}, {}}};
    const MofForm without_flavors{false, {}};
    std::string text;
    ASSERT_OK(AppendClassMof(declaration, without_flavors, text));
    EXPECT_EQ(text, R"(class Tool
{
    [static] uint32 Run(
        [In] string Names[8],
        [Out] Tool ref Made,
        object Plan);
    void Stop();
};
)");

    text.clear();
    AppendQualifierDeclarationMof({"Key",
                                   {CimType::kBoolean, false, 0, {}},
                                   false,
                                   kScopeProperty | kScopeReference,
                                   kFlavorNotOverridable | kFlavorToSubclass},
                                  text);
    AppendQualifierDeclarationMof({"Names",
                                   {CimType::kString, true, 0, {}},
                                   Value(Array{"a"s}),
                                   kScopeAny,
                                   kFlavorAmended | kFlavorToInstance},
                                  text);
    EXPECT_EQ(text, R"(Qualifier Key : boolean = FALSE,
    Scope(property, reference), Flavor(DisableOverride, ToSubclass);
Qualifier Names : string[] = {"a"},
    Scope(any), Flavor(EnableOverride, Restricted, ToInstance, Translatable);
)");
}

TEST(MofWriter, InstancesHaveWhatWasSetOnThem) {
    MemoryTarget target;
    ImportSound(target, kSchema);
    Instance policy(target.Class("Policy"));
    Instance schedule(target.Class("Schedule"));
    ASSERT_OK(SetProperty(schedule, "Hours", Array{uint64_t{1}, uint64_t{3}}));
    const auto shared = std::make_shared<const Instance>(schedule);
    ASSERT_OK(
        SetProperty(policy, "INSTANCE_ID", "\xE2\x80\xAE\xC3\xA4\0 \x7F\xC2\x85\"\\\n\xF0\x9F\x98\x80"s));
    ASSERT_OK(SetProperty(policy, "Mode", {}));
    ASSERT_OK(SetProperty(policy, "Factor", 16777216.0));
    ASSERT_OK(SetProperty(policy, "Sign", uint64_t{0xD800}));
    ASSERT_OK(SetProperty(policy, "Plan", Value(ObjectPtr(shared))));
    ASSERT_OK(SetProperty(policy, "Any", Array{ObjectPtr(shared), {}}));
    ASSERT_OK(SetProperty(policy, "Plans", Array{}));
    EXPECT_EQ(TextOf(policy), R"(instance of Policy
{
    INSTANCE_ID = "\x202Eä\x0000 \x007F\x0085\"\\\n😀";
    Factor = 16777216.0;
    Mode = NULL;
    Sign = '\xD800';
    Plan = instance of Schedule {
        Hours = {1, 3};
    };
    Any = {
        instance of Schedule {
            Hours = {1, 3};
        },
        NULL
    };
    Plans = {};
};
)");
}

class RandomValues {
 public:
    explicit RandomValues(ClassPtr embedded) : embedded_(std::move(embedded)) {}

    Value Of(const PropertyType& type) {
        if (random_() % 8 == 0) return {};
        if (!type.is_array) return std::visit([](auto held) -> Value { return held; }, One(type.type));
        Array array(random_() % 4);
        const Representation held = RepresentationOf(type.type);
        const bool may_hold_null = held == Representation::kText || held == Representation::kObject;
        for (Scalar& element : array) {
            if (!may_hold_null || random_() % 5 != 0) element = One(type.type);
        }
        return array;
    }

    uint64_t Next() { return random_(); }

 private:
    Scalar One(CimType type) {
        const IntegerRange range = RangeOf(type);
        switch (RepresentationOf(type)) {
            case Representation::kBoolean:
                return random_() % 2 == 0;
            case Representation::kSigned:
                if (random_() % 4 == 0) return range.low;
                return static_cast<int64_t>(random_() % (range.high + 1)) * (random_() % 2 ? 1 : -1);
            case Representation::kUnsigned:
                return random_() % 4 == 0 ? range.high : random_() & range.high;
            case Representation::kReal:
                return Real(type);
            case Representation::kObject:
                return Object();
            case Representation::kText:
                break;
        }
        return type == CimType::kDatetime ? "00000042235959.999999:000"s : Text();
    }

    double Real(CimType type) {
        constexpr double kInfinity = std::numeric_limits<double>::infinity();
        for (const double special : {kInfinity, -kInfinity, -0.0, std::numeric_limits<double>::quiet_NaN()}) {
            if (random_() % 10 == 0) return special;
        }
        if (type == CimType::kReal64) return std::bit_cast<double>(random_());
        const auto real = std::bit_cast<float>(static_cast<uint32_t>(random_()));
        return std::isnan(real) ? 0.0 : double{real};
    }

    std::string Text() {
        const std::vector<std::string> pieces{"a",
                                              " ",
                                              "\"",
                                              "\\",
                                              "'",
                                              "\n",
                                              "\r",
                                              "\t",
                                              "\b",
                                              "\f",
                                              "\x01",
                                              "\0"s,
                                              "\x7F",
                                              "F",
                                              "9",
                                              "$",
                                              "//",
                                              "{",
                                              "\xC3\xA4",
                                              "\xC2\x85",
                                              "\xE2\x80\xA8",
                                              "\xEF\xBB\xBF",
                                              "\xF0\x9F\x98\x80"};
        std::string text;
        for (size_t count = random_() % 12; count > 0; --count)
            text += pieces[random_() % pieces.size()];
        return text;
    }

    ObjectPtr Object() {
        Instance object(embedded_);
        if (depth_ == 3) return std::make_shared<const Instance>(object);
        ++depth_;
        for (size_t i = 0; i < embedded_->Properties().size(); ++i) {
            if (random_() % 2 == 0) continue;
            EXPECT_OK(object.Set(i, Of(embedded_->Properties()[i].type)));
        }
        --depth_;
        return std::make_shared<const Instance>(std::move(object));
    }

    const ClassPtr embedded_;
    std::mt19937_64 random_{11};
    int depth_ = 0;
};

// A class with a property and an array of every type.
std::string SchemaOfAllTypes() {
    std::string properties;
    for (const char* type :
         {"sint8", "uint8", "sint16", "uint16", "sint32", "uint32", "sint64", "uint64", "real32", "real64",
          "char16", "boolean", "string", "datetime", "object", "object ref", "Inner"}) {
        std::string name = "P" + std::string(type);
        std::erase(name, ' ');
        properties += "    " + std::string(type) + " " + name + ";\n    " + type + " " + name + "s[];\n";
    }
    return "class Inner\n{\n" + properties + "};\nclass Thing : Inner\n{\n    [key] uint32 K;\n};\n";
}

TEST(MofWriter, WhatIsWrittenReadsBackAsTheSame) {
    MemoryTarget target;
    ImportSound(target, SchemaOfAllTypes());
    const ClassPtr thing = target.Class("Thing");
    RandomValues values(target.Class("Inner"));
    std::vector<Instance> made;
    std::string text;
    for (uint64_t k = 0; k < 300; ++k) {
        Instance& instance = made.emplace_back(thing);
        for (size_t i = 0; i < thing->Properties().size(); ++i) {
            if (values.Next() % 3 == 0) continue;
            ASSERT_OK(instance.Set(i, values.Of(thing->Properties()[i].type)));
        }
        ASSERT_OK(SetProperty(instance, "K", k));
        ASSERT_OK(AppendInstanceMof(instance, text));
    }
    ImportSound(target, text);
    for (uint64_t k = 0; k < made.size(); ++k) {
        const Instance* read = target.FindInstance("Thing.K=" + std::to_string(k));
        ASSERT_TRUE(read);
        EXPECT_TRUE(SameInstance(made[k], *read)) << TextOf(made[k]);
        EXPECT_EQ(TextOf(made[k]), TextOf(*read));
    }
}

}  // namespace
}  // namespace service
