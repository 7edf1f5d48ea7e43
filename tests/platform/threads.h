// Runs one action in several threads at once.
//
//   RunInThreads(4, [&] { Count(); });   // returns when all have ended
#pragma once

#include <thread>
#include <vector>

template <class Action>
void RunInThreads(int count, const Action& action) {
    std::vector<std::jthread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        threads.emplace_back(action);
}
