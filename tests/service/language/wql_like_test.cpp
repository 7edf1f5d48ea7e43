#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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
    const std::vector<std::pair<std::string, std::string>> alike{
        {"Archive", "archive"},
        {"", ""},
        {"", "%"},
        {"abcbc", "a%bc"},
        {"x7", "[a-fx][^a-f]"},
        {"E", "[A-f]"},
        {"100%", "100[%]"},
        {"a_b[c]", "a[_]b[[]c]"},
        {"]", "[]]"},
        {"-", "[a-]"},
        {"-", "[-a]"},
        {"^", "[a^]"},
        {"C:\\new\\%", "c:\\n__\\[%]"},
        {"Größe😀", "gR__E_"},
        {"ÄRGER", "%ärger"},
        {"б", "[А-Я]"},
        {"😀", "[😀-😂]"},
    };
    const std::vector<std::pair<std::string, std::string>> different{
        {"Archives", "archive"}, {"", "_"},     {"xD", "x[^a-f]"},
        {"1000", "100[%]"},      {"]", "[^]]"}, {"😃", "[😀-😂]"},
    };
    for (const auto& [text, pattern] : alike)
        EXPECT_TRUE(Like(text, pattern)) << text << " LIKE " << pattern;
    for (const auto& [text, pattern] : different)
        EXPECT_FALSE(Like(text, pattern)) << text << " LIKE " << pattern;
}

TEST(WqlLike, NamesTheFaultyPlace) {
    const auto fault = [](std::string_view pattern) {
        const Result<WqlPattern> compiled = WqlPattern::Compile(pattern, 11);
        EXPECT_EQ(compiled.code(), WBEM_E_INVALID_QUERY) << pattern;
        return compiled.status().reason();
    };
    EXPECT_THAT(fault("äö[abc"), testing::StartsWith("character 13 of the query: the set"));
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
