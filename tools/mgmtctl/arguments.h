// The command line, read and checked.
//
//   const Arguments arguments = ReadArguments(argc, argv);
//
// Throws UsageFailure for what makes no sense, and HelpWanted where help was asked for.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mgmtctl {

enum class Command { IMPORT, NAMESPACES, CLASSES, DESCRIBE, GET, SET, DELETE_INSTANCE };

struct Arguments {
    Command command = Command::NAMESPACES;

    std::wstring namespace_path;  // \\.\root\A, the built-in one where none was given
    bool is_namespace_given = false;
    bool is_json = false;    // print for programs
    bool is_create = false;  // set: make a missing instance
    bool is_check = false;   // import: store nothing

    std::vector<std::string> files;  // import
    std::string class_name;          // classes (the superclass, may be empty), describe, get, set, delete
    std::string id;                  // get, set, delete
    std::string path;                // get, where it is given a path: class_name and id are then empty

    struct Assignment {
        std::string name;
        std::string value;
    };
    std::vector<Assignment> assignments;  // set
};

struct HelpWanted {
    std::string text;
};

Arguments ReadArguments(int argc, const char* const* argv);

// `root\A`, `root/A`, `\\.\root\A` and `//./root/A` as `\\.\root\A`. Throws UsageFailure.
std::wstring ReadNamespacePath(std::string_view text);

}  // namespace mgmtctl
