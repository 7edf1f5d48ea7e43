#include <random>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/language/wql_like.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

bool Like(std::string_view text, std::string_view pattern) {
    const Result<WqlPattern> compiled = WqlPattern::Compile(pattern);
    EXPECT_OK(compiled) << pattern;
    return compiled.ok() && compiled->Matches(text);
}

TEST(WqlLike, MatchesWildcardsAndSets) {
    EXPECT_TRUE(Like("Archive", "archive"));
    EXPECT_FALSE(Like("Archives", "archive"));
    EXPECT_TRUE(Like("", ""));
    EXPECT_TRUE(Like("", "%"));
    EXPECT_FALSE(Like("", "_"));
    EXPECT_TRUE(Like("abcbc", "a%bc"));
    EXPECT_TRUE(Like("abc", "%%b%%"));
    EXPECT_FALSE(Like("abc", "a_"));
    EXPECT_TRUE(Like("x7", "[a-fx][^a-f]"));
    EXPECT_FALSE(Like("xD", "x[^a-f]"));
    EXPECT_TRUE(Like("E", "[A-f]"));
}

TEST(WqlLike, TakesQuotedSignsAsThemselves) {
    EXPECT_TRUE(Like("100%", "100[%]"));
    EXPECT_FALSE(Like("1000", "100[%]"));
    EXPECT_TRUE(Like("a_b[c]", "a[_]b[[]c]"));
    EXPECT_TRUE(Like("]", "[]]"));
    EXPECT_FALSE(Like("]", "[^]]"));
    EXPECT_TRUE(Like("-", "[a-]"));
    EXPECT_TRUE(Like("-", "[-a]"));
    EXPECT_TRUE(Like("^", "[a^]"));
    EXPECT_TRUE(Like(R"(C:\new\%)", R"(c:\n__\[%])"));
}

TEST(WqlLike, CountsCodePointsAndFoldsBeyondAscii) {
    EXPECT_TRUE(Like("Größe😀", "gR__E_"));
    EXPECT_TRUE(Like("ÄRGER", "%ärger"));
    EXPECT_TRUE(Like("б", "[А-Я]"));
    EXPECT_TRUE(Like("😀", "[😀-😂]"));
    EXPECT_FALSE(Like("😃", "[😀-😂]"));
}

TEST(WqlLike, NamesTheFaultyPlace) {
    const auto fault = [](std::string_view pattern) {
        const Result<WqlPattern> compiled = WqlPattern::Compile(pattern, 11);
        EXPECT_EQ(compiled.code(), WBEM_E_INVALID_QUERY) << pattern;
        return compiled.status().reason();
    };
    EXPECT_THAT(fault("äö[abc"), testing::StartsWith("character 13 of the query: the set"));
    EXPECT_THAT(fault("[]"), testing::StartsWith("character 11 "));
    EXPECT_THAT(fault("x["), testing::StartsWith("character 12 "));
    EXPECT_THAT(fault("[^"), testing::StartsWith("character 11 "));
    EXPECT_THAT(fault("[az-b]"), testing::StartsWith("character 13 of the query: the range"));
}

// The definition, tried out in every way; exponential, so for short texts only.
bool Naive(std::string_view text, std::string_view pattern) {
    if (pattern.empty()) return text.empty();
    if (pattern.front() == '%')
        return Naive(text, pattern.substr(1)) || (!text.empty() && Naive(text.substr(1), pattern));
    if (text.empty()) return false;
    if (pattern.starts_with("[ab]")) return text.front() != 'c' && Naive(text.substr(1), pattern.substr(4));
    if (pattern.starts_with("[^a]")) return text.front() != 'a' && Naive(text.substr(1), pattern.substr(4));
    return (pattern.front() == '_' || pattern.front() == text.front()) &&
           Naive(text.substr(1), pattern.substr(1));
}

TEST(WqlLike, AgreesWithItsDefinition) {
    const std::string_view kPieces[] = {"%", "%", "_", "a", "b", "c", "[ab]", "[^a]"};
    std::mt19937 random(11);
    size_t matches = 0;
    for (int round = 0; round < 30'000; ++round) {
        std::string pattern, text;
        for (size_t count = random() % 7; count > 0; --count)
            pattern += kPieces[random() % std::size(kPieces)];
        for (size_t count = random() % 9; count > 0; --count)
            text += static_cast<char>('a' + random() % 3);
        const bool expected = Naive(text, pattern);
        matches += expected;
        ASSERT_EQ(Like(text, pattern), expected) << text << " LIKE " << pattern;
    }
    EXPECT_GT(matches, 1'000U);
}

// Taken by trying every way, this would not end.
TEST(WqlLike, DoesNotTryEveryWay) {
    std::string pattern;
    for (int i = 0; i < 100; ++i)
        pattern += "%a";
    EXPECT_FALSE(Like(std::string(10'000, 'a') + "b", pattern));
    EXPECT_TRUE(Like(std::string(10'000, 'a'), pattern));
}

}  // namespace
}  // namespace service
