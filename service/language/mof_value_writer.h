// Values as MOF literals. Internal to the MOF writer.
//
//   AppendMofText("a \"b\"", out);                    // "a \"b\""
//   AppendMofScalar(CimType::kReal64, view, out);     // 0.1
//
// What a MOF compiler reads back is the same value, reals bit for bit:
//
//   string, datetime, reference   in double quotes; control characters, and those that would hide or reorder
//                                 what is seen, as escapes, all others as they are
//   char16                        in single quotes likewise; half of a surrogate pair as an escape
//   real                          the fewest digits that read back as the same value, always with a point;
//                                 INF, -INF, NaN, and a NaN of other bits as NaN(0x7FF8000000000001)
//   boolean, null                 TRUE, FALSE, NULL
//
// All functions are stateless.
#pragma once

#include <string>
#include <string_view>

#include "service/model/value.h"

namespace service {

void AppendMofText(std::string_view text, std::string& out);

// The same in pieces that stand below one another, each behind `indent` blanks: broken behind blanks and line
// ends, where a line would be longer than about a hundred bytes. `column` is where the first piece stands.
void AppendMofTextInPieces(std::string_view text, size_t column, size_t indent, std::string& out);

// `value` is neither an array nor an object.
void AppendMofScalar(CimType type, const ValueView& value, std::string& out);

}  // namespace service
