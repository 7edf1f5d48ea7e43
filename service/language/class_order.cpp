#include "service/language/class_order.h"

#include <algorithm>
#include <functional>
#include <queue>

namespace service {
namespace {

// Each of those that could not be placed needs another such one, so following needs must come round.
std::vector<size_t> FindCycle(const std::vector<std::vector<size_t>>& needs,
                              const std::vector<size_t>& unmet) {
    constexpr size_t kNotSeen = static_cast<size_t>(-1);
    std::vector<size_t> seen_at(needs.size(), kNotSeen);
    std::vector<size_t> walk;
    const auto is_unplaced = [&](size_t index) { return unmet[index] > 0; };
    size_t at = static_cast<size_t>(std::find_if(unmet.begin(), unmet.end(), [](size_t n) { return n > 0; }) -
                                    unmet.begin());
    while (seen_at[at] == kNotSeen) {
        seen_at[at] = walk.size();
        walk.push_back(at);
        at = *std::find_if(needs[at].begin(), needs[at].end(), is_unplaced);
    }
    walk.erase(walk.begin(), walk.begin() + static_cast<std::ptrdiff_t>(seen_at[at]));
    std::rotate(walk.begin(), std::min_element(walk.begin(), walk.end()), walk.end());
    return walk;
}

}  // namespace

ClassOrder OrderByNeed(const std::vector<std::vector<size_t>>& needs) {
    ClassOrder result;
    std::vector<size_t> unmet(needs.size());
    std::vector<std::vector<size_t>> needed_by(needs.size());
    std::priority_queue<size_t, std::vector<size_t>, std::greater<>> ready;
    for (size_t i = 0; i < needs.size(); ++i) {
        unmet[i] = needs[i].size();
        for (const size_t need : needs[i])
            needed_by[need].push_back(i);
        if (unmet[i] == 0) ready.push(i);
    }
    while (!ready.empty()) {
        const size_t next = ready.top();
        ready.pop();
        result.order.push_back(next);
        for (const size_t waiting : needed_by[next]) {
            if (--unmet[waiting] == 0) ready.push(waiting);
        }
    }
    if (result.order.size() < needs.size()) result.cycle = FindCycle(needs, unmet);
    return result;
}

}  // namespace service
