#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/language/mof_parser.h"
#include "service/model/limits.h"
#include "service/model/status.h"
#include "service/model/text.h"

namespace service {
namespace {

using namespace std::string_view_literals;

std::optional<MofDiagnostic> Parse(std::string_view text) {
    MofFile file;
    return ParseMof({"test.mof", text}, file);
}

std::string Utf16(std::u16string_view text, bool is_big_endian) {
    std::string bytes;
    for (const char16_t unit : u"\uFEFF" + std::u16string(text)) {
        const char low = static_cast<char>(unit & 0xFF);
        const char high = static_cast<char>(unit >> 8);
        bytes += is_big_endian ? std::string{high, low} : std::string{low, high};
    }
    return bytes;
}

// One long instance must not make the short ones behind it take as much memory.
TEST(MofParser, AnInstanceTakesWhatItNeeds) {
    std::string text = "instance of A {";
    for (int i = 0; i < 10'000; ++i)
        text += "p" + std::to_string(i) + "=1;";
    text += "}; instance of A { a = 1; };";
    MofFile file;
    ASSERT_FALSE(ParseMof({"test.mof", text}, file));
    ASSERT_EQ(file.declarations.size(), 2U);
    EXPECT_LE(std::get<MofObject>(file.declarations[1]).assignments.capacity(), 100U);
}

TEST(MofParser, ReadsPastWhatNothingActsOn) {
    const auto fault = Parse(R"(
        # PRAGMA ClassFlags("forceupdate") #pragma unknown("Old", (NOFAIL, 1))
        qualifier ValueMap : string[] = {"a", "b"}, SCOPE(any);
        [Provider("x")] class Service { [key] string ref; boolean Class; string ref Ref;
            [Static] uint32 Start([in, id(0)] string Arguments[] = {"a"}, [out] Service ref Started);
            uint32 Ref(string ref, Service ref Ref); };
        [Locale(0x409)] instance of Service { [Amended] Class = TRUE; ref = "a"; };)");
    EXPECT_FALSE(fault) << Describe(*fault);
}

using Fault = std::tuple<std::string_view, size_t, size_t, std::string_view>;

void ExpectFaults(const std::vector<Fault>& cases) {
    for (const auto& [text, line, column, fragment] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        const auto fault = Parse(text);
        ASSERT_TRUE(fault);
        EXPECT_THAT(fault->message, testing::HasSubstr(std::string(fragment)));
        EXPECT_EQ(std::tie(fault->line, fault->column), std::tie(line, column)) << fault->message;
        EXPECT_EQ(fault->phase, MofPhase::kParse);
        EXPECT_EQ(fault->code, WBEM_E_INVALID_SYNTAX);
    }
}

TEST(MofParser, FaultsSayWhereAndWhatWasExpected) {
    ExpectFaults({
        {"klass A {};", 1, 1, "\"class\", \"instance\", \"Qualifier\", \"#pragma\" or a list"},
        {"\n\n  class {};", 3, 9, "the name of a class was expected, \"{\" was found"},
        {"class A {};\r\nclass B {}\r\nclass C {};", 3, 1, "\";\" was expected, \"class\" was found"},
        {"class A\r: {};", 2, 3, "the name of the superclass"},
        {"class A { string };", 1, 18, "the name of a property or method"},
        {"class A { string \u00e9\u20ac\U0001F600 x; };", 1, 22, "\"=\" or \";\" was expected, \"x\""},
        {"class A { string s[0]; };", 1, 20, "a size of 1 to"},
        {"class A { string s[99999999]; };", 1, 20, "a size of 1 to"},
        {"class A { [key string s; };", 1, 16, "\",\" or \"]\" was expected, \"string\" was found"},
        {"class A { [key : tosubclass Sometimes] string s; };", 1, 29, "a flavor, one of EnableOverride"},
        {"class A { [Max($a)] string s; };", 1, 16, "a text, a number"},
        {"class A { uint32 M(string a;); };", 1, 28, "\",\" or \")\" was expected"},
        {"class A as B {};", 1, 12, "an alias"},
        {"instance A {};", 1, 10, "\"of\" was expected"},
        {"instance of A as $1 {};", 1, 18, "a name was expected behind \"$\""},
        {"[key] #pragma x", 1, 7, "\"class\" or \"instance\""},
        {"#include \"a.mof\"", 1, 2, "\"pragma\" was expected, \"include\""},
        {"#pragma namespace(root)", 1, 19, "a text in double quotes"},
        {"#pragma unknown(1, (2)", 1, 23, "\")\" was expected, the end of the file"},
        {"Qualifier Key : boolean, Scope(everything);", 1, 32, "what the qualifier may stand at"},
        {"Qualifier Key : boolean, Scope(any), Flavour(Amended);", 1, 38, "\"Flavor\" was expected"},
        {"class A {}; /* never\n closed", 1, 13, "the comment that begins here has no end"},
        {"class A { string s = \"open;\n};", 1, 22, "not closed on its line"},
        {"class A { string s = \"open\\\n};", 1, 27, "after a backslash"},
        {"class A { char16 c = 'a", 1, 22, "one character in single quotes"},
        {"class A {}; @", 1, 13, "\"@\" has no meaning in MOF"},
        {"class A {};\x01", 1, 12, "the character U+0001 has no meaning"},
    });
}

TEST(MofParser, EncodingsGiveTheSameTree) {
    const std::string text = "\r\nclass Gr\u00fc\u00dfe_\U0001F600 { string K = \"\u20ac\U0001F600\"; };";
    const std::u16string wide = u"\r\nclass Gr\u00fc\u00dfe_\U0001F600 { string K = \"\u20ac\U0001F600\"; };";
    for (const std::string& bytes : {text, "\xEF\xBB\xBF" + text, Utf16(wide, false), Utf16(wide, true)}) {
        MofFile file;
        const auto fault = ParseMof({"test.mof", bytes}, file);
        ASSERT_FALSE(fault) << Describe(*fault);
        const MofClass& declared = std::get<MofClass>(file.declarations.at(0));
        EXPECT_EQ(declared.name.text, "Gr\u00fc\u00dfe_\U0001F600");
        EXPECT_EQ(std::get<std::string_view>(declared.properties.at(0).default_value->content),
                  "\u20ac\U0001F600");
    }
    EXPECT_EQ(Parse(Utf16(u"class \U0001F600 x", false))->column, 9U);
}

TEST(MofParser, BytesThatAreNoTextAreFaultsWhereTheyStand) {
    ExpectFaults({
        {"class A {};\n \xFF", 2, 2, "not valid UTF-8"},
        {"// \u00e9\x80", 1, 5, "not valid UTF-8"},
        {"// \xC0\xAF", 1, 4, "not valid UTF-8"},
        {"// \xED\xA0\x80", 1, 4, "not valid UTF-8"},
        {"// \xE2\x82", 1, 4, "not valid UTF-8"},
        {"class\0 A {};"sv, 1, 6, "a zero byte"},
        {"c\0l\0a\0"sv, 1, 2, "a zero byte"},
        {"\xFF\xFE/\0/\0\0\xD8x\0"sv, 1, 3, "surrogate"},
        {"\xFF\xFE/\0/\0\0\xDCx\0"sv, 1, 3, "surrogate"},
        {"\xFE\xFF\0/\0/\xD8"sv, 1, 3, "within a character"},
        {"\xFE\xFF\0/\0/\xD8\0"sv, 1, 3, "surrogate"},
        {"\xFF\xFE/\0/\0\0\0"sv, 1, 3, "a zero byte"},
    });
    EXPECT_FALSE(Parse(""));
    EXPECT_FALSE(Parse("\xFF\xFE"));
    EXPECT_FALSE(Parse("\xEF\xBB\xBF// only a comment"));
}

std::string Repeated(size_t times, std::string_view piece) {
    std::string text;
    for (size_t i = 0; i < times; ++i)
        text += piece;
    return text;
}

TEST(MofParser, NestingHasALimit) {
    const auto nested = [](size_t depth) {
        return Repeated(depth, "instance of N { P = ") + "NULL" + Repeated(depth, "; }") + ";";
    };
    // The outermost object is embedded in none.
    EXPECT_FALSE(Parse(nested(kMaxEmbeddingDepth + 1)));
    const auto fault = Parse(nested(kMaxEmbeddingDepth + 2));
    ASSERT_TRUE(fault);
    EXPECT_THAT(fault->message, testing::HasSubstr("embedded more than 128 deep"));
    EXPECT_TRUE(Parse(nested(1'000'000)));
    EXPECT_TRUE(Parse("class A { string s = " + std::string(1'000'000, '{')));
    EXPECT_TRUE(Parse("#pragma x" + std::string(1'000'000, '(')));

    const auto long_name = Parse(Repeated(1000, "\u20ac"));
    ASSERT_TRUE(long_name);
    EXPECT_LT(long_name->message.size(), 300U);
    EXPECT_TRUE(IsValidUtf8(long_name->message)) << "cut within a character";
}

}  // namespace
}  // namespace service
