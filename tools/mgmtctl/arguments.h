// The command line, read and checked.
//
//   const Arguments arguments = ReadArguments(argc, argv);
//
// Throws UsageFailure for what makes no sense, and HelpWanted where help was asked for.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/mgmtctl/event_kind.h"

namespace mgmtctl {

enum class Command {
    IMPORT,
    NAMESPACES,
    CLASSES,
    DESCRIBE,
    LIST,
    QUERY,
    COUNT,
    GET,
    XML,
    CREATE,
    SET,
    DELETE_INSTANCE,
    WATCH,
    WAIT_FOR_RELOAD,
    SIGNAL_RELOAD,
    EXPORT,
    GRAPH,
    CHECK,
    BACKUP,
    LIMITS
};

// How instances are listed.
struct Listing {
    std::vector<std::string> properties;  // the columns; empty for all
    std::string sort;                     // the property to sort by; empty for the store's order
    bool is_descending = false;
    std::optional<std::size_t> limit;  // the most instances to print
    bool is_full = false;              // cut nothing
};

struct Arguments {
    Command command = Command::NAMESPACES;

    std::wstring namespace_path;  // \\.\root\A, the built-in one where none was given
    bool is_namespace_given = false;
    bool is_json = false;     // print for programs
    bool is_create = false;   // set: make a missing instance
    bool is_check = false;    // import: store nothing
    bool is_forced = false;   // import: change what is stored along with its class
    bool is_shallow = false;  // list, count: without the instances of subclasses

    std::vector<std::string> files;        // import
    std::vector<std::string> class_names;  // export: empty for all
    bool has_instances = false;            // export
    bool is_recursive = false;             // export: with the namespaces below
    std::string output;                    // export: a file; empty for the standard output. backup: the copy
    std::string class_name;  // of all that name a class; of classes the superclass, may be empty
    std::string id;          // get, xml, create, set, delete; of watch it may be empty
    std::string path;  // get, xml, set, delete, where they are given a path: class_name and id are then empty
    std::string query;  // query; watch, in place of a class
    std::string where;  // list, count: the condition, may be empty
    Listing listing;    // list, query; of get and watch is_full alone

    std::set<EventKind> kinds;                         // watch: empty for all
    std::optional<std::size_t> event_count;            // watch: end after so many, at least 1
    std::optional<std::chrono::milliseconds> timeout;  // wait for reload

    struct Assignment {
        std::string name;
        std::string value;
    };
    std::vector<Assignment> assignments;  // create, set
};

struct HelpWanted {
    std::string text;
};

Arguments ReadArguments(int argc, const char* const* argv);

// `root\A`, `root/A`, `\\.\root\A` and `//./root/A` as `\\.\root\A`. Throws UsageFailure.
std::wstring ReadNamespacePath(std::string_view text);

}  // namespace mgmtctl
