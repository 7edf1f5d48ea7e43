// Puts things that need one another in an order in which each comes behind what it needs.
//
//   ClassOrder order = OrderByNeed(needs);   // needs[i]: the indexes that i needs
//   if (!order.cycle.empty()) ...
//
// Stateless; linear in the number of needs but for the logarithm that keeps the given order where it may be
// kept.
#pragma once

#include <cstddef>
#include <vector>

namespace service {

struct ClassOrder {
    std::vector<size_t> order;  // every index once; short of some when there is a cycle
    std::vector<size_t> cycle;  // indexes of which each needs the next and the last the first; or empty
};

ClassOrder OrderByNeed(const std::vector<std::vector<size_t>>& needs);

}  // namespace service
