#include "tools/mgmtctl/wrapping.h"

#include <algorithm>

#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

void WrapLine(std::string_view text, std::size_t columns, std::vector<std::string>& lines) {
    std::string line;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        const std::string word = Printable(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (word.empty()) continue;
        if (!line.empty() && DisplayWidth(line) + 1 + DisplayWidth(word) > columns) {
            lines.push_back(std::move(line));
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    lines.push_back(std::move(line));
}

}  // namespace

std::vector<std::string> Wrapped(std::string_view utf8, std::size_t columns) {
    std::vector<std::string> lines;
    while (!utf8.empty()) {
        const std::size_t end = std::min(utf8.find('\n'), utf8.size());
        std::string_view line = utf8.substr(0, end);
        if (line.ends_with('\r')) line.remove_suffix(1);
        WrapLine(line, columns, lines);
        utf8.remove_prefix(std::min(end + 1, utf8.size()));
    }
    return lines;
}

}  // namespace mgmtctl
