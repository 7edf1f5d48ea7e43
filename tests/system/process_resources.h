// ProcessResources: what this process holds of the system, to see whether something left anything behind.
//
//   const ProcessResources before = ProcessResources::WhenQuiet();
//   Work();
//   EXPECT_FALSE(ProcessResources::WhenQuiet().AreMoreThan(before));
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

struct ProcessResources {
    long threads = 0;
    long descriptors = 0;
    long mappings = 0;

    static ProcessResources Now() {
        const auto entries = [](const char* directory) {
            return static_cast<long>(std::distance(std::filesystem::directory_iterator(directory), {}));
        };
        ProcessResources found{entries("/proc/self/task"), entries("/proc/self/fd"), 0};
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);)
            ++found.mappings;
        return found;
    }

    // Threads that nobody joins take a moment to end.
    static ProcessResources WhenQuiet() {
        ProcessResources last = Now();
        for (int quiet = 0, looks = 0; quiet < 20 && looks < 1'000; ++looks) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            const ProcessResources now = Now();
            quiet = now.threads == last.threads ? quiet + 1 : 0;
            last = now;
        }
        return last;
    }

    // The C library keeps the stacks of some threads that have ended, and heaps for threads to come.
    bool AreMoreThan(const ProcessResources& before) const {
        constexpr long kKeptMappings = 64;
        return threads > before.threads || descriptors > before.descriptors ||
               mappings > before.mappings + kKeptMappings;
    }

    std::string Shown() const {
        return std::to_string(threads) + " threads, " + std::to_string(descriptors) + " descriptors, " +
               std::to_string(mappings) + " mappings";
    }
};
