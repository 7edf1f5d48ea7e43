#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "service/model/text.h"
#include "tests/service/language/memory_target.h"

namespace service {
namespace {

// Uses every form of the language once.
constexpr std::string_view kSample = R"(// Schema of the retention settings.
#pragma namespace("\\\\.\\root\\test")
#pragma autorecover
#pragma classflags ("forceupdate")
Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride, ToSubclass);
instance of __Namespace { Name = "archive"; };
[Description("Gr\xFC\xDF" "e aus K\xF6ln") : Amended ToSubclass, Values{"a", NULL}]
class Policy : Base
{
    uint8 Small = 0xFF; sint64 Large = -9223372036854775808; real32 Ratio = 1.5e-3;
    char16 Mark = '\x20AC'; boolean On = TRUE; datetime Since = "20240101000000.000000+000";
    string Tags[3] = {"a", "b\n"}; Schedule Plan; object Any; Policy ref Parent;
    [EmbeddedInstance("Schedule")] string Plans[];
    [Implemented] uint32 Apply([in] string Why, [out] Policy ref Applied);
};
class Base { [key, read] string INSTANCE_ID; };
class Schedule { uint32 Hours[] = {017, 101b, +1}; Schedule Next; };
/* Instances, the first of which refers to the second. */
instance of Policy as $Mail { INSTANCE_ID = "mail"; Parent = $All; };
instance of Policy as $All {
    INSTANCE_ID = "all"; Ratio = .5; On = false; Mark = 'x';
    Plan = instance of Schedule { Next = instance of Schedule { Hours = {}; }; };
    Plans = { instance of Schedule {}, NULL };
    Any = instance of Policy { INSTANCE_ID = "inner"; Parent = "Policy.INSTANCE_ID=\"mail\""; };
};
#pragma namespace("root/test/archive")
class Box { [key] uint64 Number; [key] boolean Sealed = FALSE; };
instance of Box { Number = 18446744073709551615; };
)";

// Either everything was put, or the fault has a place within the text and a message that is text.
void ExpectOutcome(std::string_view text) {
    MemoryTarget target;
    const MofImport import = Import(target, text);
    if (!import.fault) return;
    EXPECT_LT(import.fault->code, 0);
    EXPECT_FALSE(import.fault->message.empty());
    EXPECT_TRUE(IsValidUtf8(import.fault->message)) << Describe(*import.fault);
    EXPECT_GE(import.fault->line, 1U);
    EXPECT_GE(import.fault->column, 1U);
    EXPECT_LE(import.fault->column, text.size() + 1);
}

TEST(MofDamaged, TheSampleItselfIsSound) {
    MemoryTarget target;
    const MofImport import = Import(target, kSample);
    ASSERT_FALSE(import.fault) << Describe(*import.fault);
    EXPECT_EQ(import.summary.classes, 4U);
    EXPECT_EQ(import.summary.instances, 3U);
    EXPECT_EQ(import.summary.namespaces, 1U);
}

TEST(MofDamaged, CutAtEveryByte) {
    size_t sound = 0;
    for (size_t length = 0; length < kSample.size(); ++length) {
        const std::string cut(kSample.substr(0, length));
        ExpectOutcome(cut);
        MemoryTarget target;
        if (!Import(target, cut).fault) ++sound;
    }
    // Only a cut between two declarations leaves something sound, and those are few.
    EXPECT_LT(sound, kSample.size() / 4);
}

TEST(MofDamaged, BytesChangedAtRandom) {
    std::mt19937 random(20240229);
    for (int round = 0; round < 4000; ++round) {
        std::string text(kSample);
        const size_t changes = 1 + random() % 4;
        for (size_t i = 0; i < changes; ++i) {
            const size_t at = random() % text.size();
            switch (random() % 4) {
                case 0:
                    text[at] = static_cast<char>(random());
                    break;
                case 1:
                    text[at] = "{}[]();:,=\"'\\$#-+.0xb"[random() % 21];
                    break;
                case 2:
                    text.erase(at, 1 + random() % 20);
                    break;
                default:
                    text.insert(at, text.substr(random() % text.size(), random() % 40));
                    break;
            }
        }
        ExpectOutcome(text);
    }
}

TEST(MofDamaged, NoiseInEveryEncoding) {
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes;
        if (round % 3 == 1) bytes = "\xFF\xFE";
        if (round % 3 == 2) bytes = "\xFE\xFF";
        const size_t length = random() % 64;
        for (size_t i = 0; i < length; ++i)
            bytes.push_back(static_cast<char>(random()));
        ExpectOutcome(bytes);
    }
}

}  // namespace
}  // namespace service
