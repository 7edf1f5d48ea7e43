// The aliases of one source of an import and of what it includes. Internal to the MOF compiler.
//
//   aliases.Add({name, &object, space, &objects});
//   if (MofAliases::Entry* entry = aliases.Find("First")) ...
//
// Belongs to one thread at a time; outlives what it refers to nowhere.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>

#include "service/language/mof_syntax.h"
#include "service/model/text.h"

namespace service {

class MofObjects;

class MofAliases {
 public:
    enum class Progress { kUnresolved, kResolving, kResolved };
    struct Entry {
        MofName alias;
        std::variant<const MofClass*, const MofObject*> aliased;  // what it stands for
        size_t space = 0;
        MofObjects* home = nullptr;  // of the file in which it stands
        Progress progress = Progress::kUnresolved;
        std::string path = {};  // relative to its namespace
    };

    // False when the alias stands for something else already.
    [[nodiscard]] bool Add(const Entry& entry) {
        return entries_.try_emplace(Fold(entry.alias.text), entry).second;
    }

    // Makes those of `other` known, too, behind its own.
    void Include(MofAliases& other) {
        if (&other == this) return;
        others_.insert(&other);
        others_.insert(other.others_.begin(), other.others_.end());
    }

    // Null when there is none.
    Entry* Find(std::string_view name) {
        const std::string folded = Fold(name);
        if (Entry* own = FindOwn(folded)) return own;
        for (MofAliases* other : others_) {
            if (Entry* found = other->FindOwn(folded)) return found;
        }
        return nullptr;
    }

 private:
    Entry* FindOwn(const std::string& folded) {
        const auto found = entries_.find(folded);
        return found == entries_.end() ? nullptr : &found->second;
    }

    std::unordered_map<std::string, Entry> entries_;  // by their folded names
    std::set<MofAliases*> others_;
};

}  // namespace service
