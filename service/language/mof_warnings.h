// Where an import says what it read past, each thing once. Internal to the MOF compiler.
//
//   MofWarnings warnings([](const std::string& sentence) { ... });
//   warnings.Warn(file, offset, "locale", "#pragma locale has no effect here");
//
// Belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_set>
#include <utility>

#include "service/language/mof_syntax.h"

namespace service {

class MofWarnings {
 public:
    // `tell`, which may be missing, gets "file:line:column: message".
    explicit MofWarnings(std::function<void(const std::string& sentence)> tell) : tell_(std::move(tell)) {}

    // Tells `message`, at its place in the file, unless something of the same `kind` was told before.
    void Warn(const MofFile& file, size_t offset, const std::string& kind, const std::string& message) {
        if (!tell_ || seen_.size() == kMaxSeen || !seen_.insert(kind).second) return;
        tell_(Describe(file.FaultAt(offset, MofPhase::kCheck, 0, message)));
    }

 private:
    // To find the line of each takes as long as to read the file.
    static constexpr size_t kMaxSeen = 1'000;

    const std::function<void(const std::string& sentence)> tell_;
    std::unordered_set<std::string> seen_;
};

}  // namespace service
