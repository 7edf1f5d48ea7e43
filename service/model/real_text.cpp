#include "service/model/real_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace service {
namespace {

template <typename Number>
std::string Digits(Number number) {
    std::array<char, 40> room{};
    return {room.data(), std::to_chars(room.data(), room.data() + room.size(), number).ptr};
}

}  // namespace

std::string RealText(CimType type, double real) {
    if (std::isnan(real)) return "NaN";
    if (std::isinf(real)) return real < 0 ? "-INF" : "INF";
    return type == CimType::kReal32 ? Digits(static_cast<float>(real)) : Digits(real);
}

std::string PointedRealText(CimType type, double real) {
    std::string text = RealText(type, real);
    if (std::isfinite(real) && text.find('.') == std::string::npos)
        text.insert(std::min(text.find('e'), text.size()), ".0");
    return text;
}

}  // namespace service
