// The name of a source file without its folders, for messages and log lines.
#pragma once

#include <string_view>

namespace OS {

// The part of `path` behind its last slash or backslash. A view into `path`.
inline std::wstring_view FileNameOf(std::wstring_view path) noexcept {
    return path.substr(path.find_last_of(L"/\\") + 1);
}

}  // namespace OS
