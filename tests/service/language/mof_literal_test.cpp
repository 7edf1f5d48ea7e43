#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/language/memory_target.h"

namespace service {
namespace {

using namespace std::string_literals;

// The value that `literal` gives a property of `type`, or the message of the fault.
Value Convert(const std::string& type, const std::string& literal) {
    MemoryTarget target;
    const MofImport import = Import(target, "class C { [key] uint32 K; " + type +
                                                " P; };\ninstance of C { K = 1;\nP = " + literal + "; };");
    if (import.fault) return import.fault->message;
    return ValueOf(*target.FindInstance("C.K=1"), "P");
}

TEST(MofLiteral, EveryFormOfEveryType) {
    const std::vector<std::tuple<std::string, std::string, Value>> cases{
        {"sint8", "-128", int64_t{-128}},
        {"sint32", "-0x80000000", int64_t{-2147483648}},
        {"uint32", "0XffffFFFF", uint64_t{4294967295}},
        {"uint32", "017", uint64_t{15}},
        {"uint32", "-0", uint64_t{0}},
        {"uint8", "10000001b", uint64_t{129}},
        {"uint8", "0101B", uint64_t{5}},
        {"sint64", "-9223372036854775808", std::numeric_limits<int64_t>::min()},
        {"sint64", "0x7FFFFFFFFFFFFFFF", std::numeric_limits<int64_t>::max()},
        {"uint64", "18446744073709551615", std::numeric_limits<uint64_t>::max()},
        {"uint64", std::string(64, '1') + "b", std::numeric_limits<uint64_t>::max()},
        {"real64", "-1.5e-3", -0.0015},
        {"real64", "+2.5E+2", 250.0},
        {"real64", ".5", 0.5},
        {"real64", "0.1", 0.1},
        {"real64", "-7", -7.0},
        {"real64", "-0.0", -0.0},
        {"real64", "1.7976931348623157e308", std::numeric_limits<double>::max()},
        {"real64", "-18446744073709551616", -0x1p64},
        {"real64", "4.9e-324", std::numeric_limits<double>::denorm_min()},
        {"real64", "0e-400", 0.0},
        {"real32", "1.5e-45", double{std::numeric_limits<float>::denorm_min()}},
        {"real32", "0.1", double{0.1F}},
        {"real32", "3.40282347e+38", double{std::numeric_limits<float>::max()}},
        {"real64", "INF", std::numeric_limits<double>::infinity()},
        {"real32", "-inf", -std::numeric_limits<double>::infinity()},
        {"real64", "NaN", std::numeric_limits<double>::quiet_NaN()},
        {"real64", "NaN(0xFFF8000000000001)", std::bit_cast<double>(uint64_t{0xFFF8000000000001})},
        {"boolean", "FALSE", false},
        {"char16", R"('\'')", uint64_t{'\''}},
        {"char16", R"('\x20ac')", uint64_t{0x20AC}},
        {"char16", "'\u20ac'", uint64_t{0x20AC}},
        {"char16", "65535", uint64_t{65535}},
        {"string", R"("")", ""s},
        {"string", "\"a\" /* and */ \"b\" // and\n\"c\"", "abc"s},
        {"string", R"("\b\t\n\f\r\"\'\\")", "\b\t\n\f\r\"'\\"s},
        {"string", R"("\x41\X62 \x20AC1")", "Ab \u20ac1"s},
        {"string", R"("\xD83D\xde00")", "\U0001F600"s},
        {"string", R"("a\x0z")", "a\0z"s},
        {"string", "\"no // comment /* here\"", "no // comment /* here"s},
        {"datetime", R"("00000011123456.000000:000")", "00000011123456.000000:000"s},
        {"C ref", R"("C.K=7")", "C.K=7"s},
    };
    for (const auto& [type, literal, value] : cases)
        EXPECT_TRUE(SameValue(Convert(type, literal), value)) << type << " = " << literal;
    for (const char* type : {"uint8", "real32", "boolean", "char16", "datetime", "C ref", "C", "object"})
        EXPECT_TRUE(IsNull(Convert(type, "Null"))) << type;
}

TEST(MofLiteral, RefusedValuesSayWhatIsAllowed) {
    const std::vector<std::tuple<std::string, std::string, std::string>> cases{
        {"uint8", "256", "property C.P: the number 256 was found, uint8 takes whole numbers from 0 to 255"},
        {"uint8", "-1", "the number -1 was found"},
        {"sint8", "128", "from -128 to 127"},
        {"sint64", "9223372036854775808", "the number 9223372036854775808"},
        {"sint64", "-9223372036854775809", "the number -9223372036854775809"},
        {"uint64", "18446744073709551616", "more than 64 bits"},
        {"real64", "0x1FFFFFFFFFFFFFFFF", "more than 64 bits"},
        {"uint32", "1.0", "the number 1 was found, uint32 takes whole numbers"},
        {"uint32", "\"1\"", "the text \"1\" was found"},
        {"uint32", "TRUE", "TRUE was found"},
        {"uint32", "'a'", "a character was found"},
        {"char16", "65536", "char16 takes whole numbers from 0 to 65535 and a character"},
        {"char16", "\"a\"", "the text \"a\" was found"},
        {"char16", "'\U0001F600'", "one UTF-16 unit"},
        {"char16", "'ab'", "one character in single quotes"},
        {"char16", "''", "one character in single quotes"},
        {"boolean", "1", "a boolean takes TRUE and FALSE"},
        {"string", "5", "a string takes a text"},
        {"real32", "3.5e38", "real32 takes numbers of at most"},
        {"real32", "1e-50", "the number 1e-50 was found, real32 takes"},
        {"real64", "1e309", "beyond what a real64 can hold"},
        {"real64", std::string(400, '1') + ".0e-50", "beyond what a real64 can hold"},
        {"real64", "1e-400", "nearer to 0 than any"},
        {"real64", "0." + std::string(400, '0') + "1e+50", "nearer to 0 than any"},
        {"real64", "1e-99999999999999999999", "nearer to 0 than any"},
        {"real64", "\"1\"", "real64 takes numbers"},
        {"datetime", "\"2024\"", "the text \"2024\" was found, a datetime takes a text of 25 characters"},
        {"C ref", "5", "a reference takes an object path"},
        {"C", "\"text\"", "instance of Class { ... }"},
        {"C", "$A", "the alias $A was found"},
        {"string", "instance of C {}", "an embedded object of class C was found"},
        {"string", "{\"a\"}", "property C.P: an array was found, string takes one value"},
        {"string", R"("\xD83D")", "surrogate"},
        {"string", R"("\xD83Dx")", "surrogate"},
        {"string", R"("\xD83D\x0041")", "surrogate"},
        {"string", R"("\xDE00")", "surrogate"},
        {"string", R"("\q")", "after a backslash"},
        {"string", R"("\xg")", "hexadecimal digit"},
        {"uint32", "0x", "\"0x\" is no number"},
        {"uint32", "08", "\"08\" is no number"},
        {"uint32", "12b", "\"12b\" is no number"},
        {"uint32", "0x1.5", "is no number"},
        {"uint32", "- 5", "\"-\" is no number"},
        {"real64", "1e", "\"1e\" is no number"},
        {"real64", ".", "\".\" is no number"},
    };
    for (const auto& [type, literal, fragment] : cases) {
        EXPECT_THAT(std::get<std::string>(Convert(type, literal)), testing::HasSubstr(fragment))
            << type << " = " << literal;
    }
}

TEST(MofLiteral, ArraysKeepTheirOrderNullsAndBounds) {
    MemoryTarget target;
    ASSERT_EQ(FaultIn(Import(target, R"(
        class C { [key] uint32 K; uint8 Bytes[4]; real32 Empty[]; string Names[]; };
        instance of C { K = 1; Bytes = {1, 0x02, 11b}; Empty = {}; Names = {NULL, ""}; };)")),
              "");
    const Instance& c = *target.FindInstance("C.K=1");
    EXPECT_TRUE(SameValue(ValueOf(c, "Bytes"), Array{uint64_t{1}, uint64_t{2}, uint64_t{3}}));
    EXPECT_TRUE(SameValue(ValueOf(c, "Empty"), Array{}));
    EXPECT_TRUE(SameValue(ValueOf(c, "Names"), Array{std::monostate(), ""s}));

    const std::vector<std::tuple<std::string, std::string>> refused{
        {"{1,2,3,4,5}", "the array has 5 elements, 4 are allowed"},
        {"{1,300}", "the number 300 was found"},
        {"1", "property C.Bytes: the number 1 was found, uint8[4] takes an array"},
        {"{{1}}", "an array cannot be an element of an array"},
        {"{1,}", "a value was expected"},
        {"{1 2}", "\",\" or \"}\" was expected"},
    };
    for (const auto& [array, fragment] : refused) {
        EXPECT_THAT(FaultIn(Import(target, "instance of C { K = 2; Bytes = " + array + "; };")),
                    testing::HasSubstr(fragment));
    }
}

}  // namespace
}  // namespace service
