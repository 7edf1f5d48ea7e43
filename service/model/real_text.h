// Reals as text.
//
//   RealText(CimType::kReal32, double{0.1F});      // "0.1"
//   PointedRealText(CimType::kReal64, 1e20);       // "1.0e+20"
//
// Both are stateless and may be called from any thread.
#pragma once

#include <string>

#include "service/model/value.h"

namespace service {

// The fewest digits that read back as the same real of `type`, kReal32 or kReal64; INF, -INF, and NaN
// whatever its bits.
std::string RealText(CimType type, double real);

// The same, always with a point in a number.
std::string PointedRealText(CimType type, double real);

}  // namespace service
