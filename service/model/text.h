// The one place where wide text becomes UTF-8 and back, and where text is folded for comparison.
//
//   std::string utf8;
//   if (!AppendUtf8(wide, utf8)) ...           // the text has no UTF-8 form
//   if (EqualFolded(name, "instance_id")) ...
//
// Wide text is UTF-16 where wchar_t has 16 bits and one code point a unit where it has 32. Text that has no
// UTF-8 form (a lone surrogate, a value above 0x10FFFF) is refused, never replaced. All functions are
// stateless and may be called from any thread.
#pragma once

#include <string>
#include <string_view>

namespace service {

// Appends `wide` to `utf8`; false, with `utf8` as it was, when `wide` has no UTF-8 form.
bool AppendUtf8(std::wstring_view wide, std::string& utf8);

// The number of wide units that `utf8` needs, or -1 when it is not valid UTF-8.
long CountWideUnits(std::string_view utf8) noexcept;

// Writes the wide form of `utf8`, valid and of CountWideUnits(utf8) units, to `wide`.
void WriteWide(std::string_view utf8, wchar_t* wide) noexcept;

// Writes `utf8` to `wide`, one unit a byte; false when it is not all ASCII, so that this is not its wide
// form.
bool WriteWideAscii(std::string_view utf8, wchar_t* wide) noexcept;

// The wide form of `utf8`, each ill-formed byte as U+FFFD: for messages, never for data.
std::wstring ToWideLossy(std::string_view utf8);

// The UTF-8 form of `wide`, each unit without one as U+FFFD: for messages, never for data.
std::string ToUtf8Lossy(std::wstring_view wide);

// At most `max_bytes` of valid UTF-8, cut at a character's border and with "..." for the rest: for messages.
std::string ClipForMessage(std::string_view utf8, size_t max_bytes);

bool IsValidUtf8(std::string_view text) noexcept;

// Case folding of valid UTF-8, each code point by its simple case mappings. Folded text is written to disk as
// part of keys; Unicode's stability policy keeps the case pairs of assigned characters for all future
// versions.
std::string Fold(std::string_view text);
void AppendFolded(std::string_view text, std::string& folded);

// Whether two texts are the same without regard to case.
bool EqualFolded(std::string_view a, std::string_view b);

}  // namespace service
