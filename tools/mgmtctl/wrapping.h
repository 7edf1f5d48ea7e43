// Text broken into lines that fit a terminal.
//
//   for (const std::string& line : Wrapped(description, 76)) std::cout << "    " << line << '\n';
//
// Stateless.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace mgmtctl {

// Lines of at most so many columns, broken at blanks and at the text's own line ends; a word that is longer
// has a line of its own. Other control characters are shown as escapes.
std::vector<std::string> Wrapped(std::string_view utf8, std::size_t columns);

}  // namespace mgmtctl
