#include "service/language/mof_writer.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/language/memory_target.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

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
    real64 Reals[];
    Schedule Plan;
    object Any[];
    [EmbeddedInstance("Schedule")] string Plans[];
    [EmbeddedObject] string Other;
    Rule ref Parent;
    object ref Owners[3];
};

class Tool
{
    [static] uint32 Run(
        [In] string Names[8],
        [Out] Tool ref Made,
        object Plan);
    void Stop();
};
)mof";

constexpr std::string_view kQualifiers = R"(Qualifier Key : boolean = FALSE,
    Scope(property, instance, namespace), Flavor(DisableOverride, ToSubclass);
Qualifier Names : string[] = {"a"},
    Scope(any, instance), Flavor(EnableOverride, Restricted, ToInstance, Translatable);
)";

constexpr std::string_view kInstance = R"(instance of Policy
{
    INSTANCE_ID = "\x202Eä\x0000 \x007F\x0085\x2066\xFEFF'\"\\\b\t\n\f\r😀";
    Factor = 16777216.0;
    Mode = NULL;
    Sign = '\xD800';
    Reals = {0.1, -0.0, 1.0e+300, 5.0e-324, 1.7976931348623157e+308, INF, -INF, NaN, NaN(0xFFF8000000000001)};
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
    Parent = "Rule.INSTANCE_ID=\"a\\\\b\"";
};
)";

std::string TextOf(const ClassPtr& definition, const MofForm& form = {}) {
    std::string text;
    EXPECT_OK(AppendClassMof(definition->Declaration(), form, text));
    return text;
}

TEST(MofWriter, ClassesAreWrittenAsTheyAreBestRead) {
    MemoryTarget target;
    ASSERT_EQ(FaultIn(Import(target, kSchema)), "");
    EXPECT_EQ(TextOf(target.Class("Rule")) + "\n" + TextOf(target.Class("Schedule")) + "\n" +
                  TextOf(target.Class("Policy")) + "\n" + TextOf(target.Class("Tool")),
              kSchema);
    EXPECT_THAT(TextOf(target.Class("Policy"), {false, {}}),
                HasSubstr("[association, Nothing(NULL), Never(FALSE)]\n"));
    // A flavor is said where it differs from the one that the qualifier is declared with.
    EXPECT_THAT(TextOf(target.Class("Rule"),
                       {true, [](std::string_view) { return kFlavorNotOverridable | kFlavorToSubclass; }}),
                HasSubstr("[key, read : EnableOverride, MaxLen(64) : EnableOverride]"));
}

// What the literals stand for is the business of the tests of reading them.
TEST(MofWriter, WhatIsReadIsWrittenAsTheSame) {
    MemoryTarget target;
    ASSERT_EQ(FaultIn(Import(target, std::string(kSchema).append(kQualifiers))), "");
    ASSERT_EQ(FaultIn(Import(target, kInstance)), "");
    const MemoryTarget::Space& space = target.namespaces["root\\test"];
    std::string text;
    EXPECT_OK(AppendInstanceMof(space.instances.begin()->second, text));
    EXPECT_EQ(text, kInstance);
    text.clear();
    for (const auto& [name, declaration] : space.qualifiers)
        AppendQualifierDeclarationMof(declaration, text);
    EXPECT_EQ(text, kQualifiers);
}

}  // namespace
}  // namespace service
