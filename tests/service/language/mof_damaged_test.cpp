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
#pragma classflags ("forceupdate")
Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride, ToSubclass);
[Description("Gr\xFC\xDF" "e aus K\xF6ln") : Amended ToSubclass, Values{"a", NULL}]
class Policy : Base {
    sint64 Large = -9223372036854775808; real32 Ratio = 1.5e-3; char16 Mark = '\x20AC'; boolean On = TRUE;
    string Tags[3] = {"a", "b\n"}; Schedule Plan; Policy ref Parent; [EmbeddedInstance("Schedule")] string Plans[];
    [Implemented] uint32 Apply([in] string Why, [out] Policy ref Applied); };
class Base { [key, read] string INSTANCE_ID; };
class Schedule { uint32 Hours[] = {017, 101b, +1, 0xFF}; };
/* Instances, the first of which refers to the second. */
instance of Policy as $Mail { INSTANCE_ID = "mail"; Parent = $All; };
instance of Policy as $All { INSTANCE_ID = "all"; Ratio = .5; Mark = 'x'; Plan = instance of Schedule { Hours = {}; };
    Plans = { instance of Schedule {}, NULL }; Parent = "Policy.INSTANCE_ID=\"mail\""; };
instance of __Namespace { Name = "archive"; };
)";

// Either everything was put, or the fault has a place within the text and a message that is text.
bool IsSound(std::string_view text) {
    MemoryTarget target;
    const auto fault = Import(target, text).fault;
    if (!fault) return true;
    EXPECT_LT(fault->code, 0);
    EXPECT_TRUE(!fault->message.empty() && IsValidUtf8(fault->message)) << Describe(*fault);
    EXPECT_TRUE(fault->line >= 1 && fault->column >= 1 && fault->column <= text.size() + 1);
    return false;
}

TEST(MofDamaged, CutAtEveryByte) {
    EXPECT_TRUE(IsSound(kSample));
    size_t sound = 0;
    for (size_t length = 0; length < kSample.size(); ++length)
        sound += IsSound(kSample.substr(0, length));
    // Only a cut between two declarations leaves something sound, and those are few.
    EXPECT_LT(sound, kSample.size() / 4);
}

TEST(MofDamaged, BytesChangedAtRandom) {
    constexpr std::string_view kSigns = "{}[]();:,=\"'\\$#-+.0xb";
    std::mt19937 random(20240229);
    for (int round = 0; round < 4000; ++round) {
        std::string text(kSample);
        for (size_t changes = 1 + random() % 4; changes > 0; --changes) {
            const size_t at = random() % text.size();
            const std::string pieces[] = {"",
                                          {static_cast<char>(random())},
                                          {kSigns[random() % kSigns.size()]},
                                          text.substr(random() % text.size(), random() % 40)};
            text.replace(at, random() % 2 ? 1 : random() % 20, pieces[random() % std::size(pieces)]);
        }
        IsSound(text);
    }
}

}  // namespace
}  // namespace service
