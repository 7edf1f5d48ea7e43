#include "tools/mgmtctl/query_text.h"

#include <algorithm>

namespace mgmtctl {
namespace {

constexpr std::string_view BLANKS = " \t\r\n\f\v";
constexpr std::string_view SYMBOLS = "*,.()";

// Takes the next word or symbol off the front; empty at the end.
std::string_view TakeToken(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(BLANKS), rest.size()));
    const bool is_symbol = !rest.empty() && SYMBOLS.find(rest.front()) != std::string_view::npos;
    const std::size_t end = is_symbol ? 1 : rest.find_first_of(" \t\r\n\f\v*,.()");
    const std::string_view token = rest.substr(0, end);
    rest.remove_prefix(token.size());
    return token;
}

bool IsFrom(std::string_view token) {
    constexpr std::string_view FROM = "from";
    return std::equal(token.begin(), token.end(), FROM.begin(), FROM.end(),
                      [](char given, char lower) { return (given | 0x20) == lower; });
}

}  // namespace

Selected ReadSelect(std::string_view query) {
    Selected selected;
    std::string_view rest = query;
    TakeToken(rest);
    // A name is due behind SELECT and behind each comma, whatever it is called.
    bool is_name_due = true;
    for (std::string_view token = TakeToken(rest); !token.empty(); token = TakeToken(rest)) {
        if (!is_name_due && IsFrom(token)) {
            selected.class_name = TakeToken(rest);
            break;
        }
        is_name_due = token == ",";
        if (token != "," && token != "*") selected.properties.emplace_back(token);
    }
    return selected;
}

}  // namespace mgmtctl
