#include "tools/mgmtctl/arguments.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include <CLI/CLI.hpp>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

constexpr const char* DEFAULT_NAMESPACE = "\\\\.\\root\\Vantrel\\Halvenor";

constexpr const char* ABOUT =
    "Reads and changes management data: the classes and instances of a management namespace.";

constexpr const char* FOOTER = R"(Examples:
  mgmtctl import schema.mof data.mof       store what the files declare, all or nothing
  mgmtctl namespaces                       list the namespaces
  mgmtctl classes                          list the classes of the namespace
  mgmtctl describe RetentionPolicy         show the properties of a class
  mgmtctl get RetentionPolicy mail         show an instance by its class and INSTANCE_ID
  mgmtctl get 'RetentionPolicy.INSTANCE_ID="mail"' --json
  mgmtctl set RetentionPolicy mail KeepDays=30 'Tags=["hr","legal"]' Note=null
  mgmtctl set RetentionPolicy new DisplayName=New --create
  mgmtctl delete RetentionPolicy new

The data lie in a store on this machine; the environment variable MGMT_STORE names its folder.
Exit codes: 0 done, 1 the operation failed, 2 the command line makes no sense.)";

constexpr const char* SET_FOOTER =
    R"(Values are read by the declared type of the property ("mgmtctl describe CLASS" shows it):
  KeepDays=30  Size=0x10000        an integer
  Weight=0.5                       a real
  Enabled=true                     a boolean
  DisplayName=Mail                 text, as it stands
  DisplayName="\"null\""           text in double quotes is read as a JSON string: here the text null
  Since=2026-11-22T10:30:00+01:00  a date and time, ISO 8601 or CIM (20261122103000.000000+060);
                                   without an offset it is taken as UTC
  Timeout=00000001120000.000000:000  an interval: 1 day and 12 hours
  Grade=A                          one character (char16)
  Volume=Volume.INSTANCE_ID="v1"   a reference, the path of an instance
  'Tags=["a","b"]'  'Sizes=[1,2]'  an array, as JSON; [] is an array without elements
  Note=null                        null: no value
Embedded objects can be imported and read, but not set here.)";

constexpr const char* GET_FOOTER =
    R"(An id that begins with a dash, or is "++", comes after "--": mgmtctl get RetentionPolicy -- -1)";

// The options that go in front of a command as well as behind it.
void AddCommonOptions(CLI::App& app, Arguments& arguments, std::optional<std::string>& namespace_text) {
    app.add_option(
           "-n,--namespace", namespace_text,
           std::string("The namespace, such as root\\A or root/A (default ") + DEFAULT_NAMESPACE + ")")
        ->type_name("PATH");
    app.add_flag("--json", arguments.is_json, "Print JSON for programs instead of a table for people");
}

void AddClass(CLI::App& app, Arguments& arguments) {
    app.add_option("CLASS", arguments.class_name, "The name of the class")->required()->type_name("");
}

void AddId(CLI::App& app, Arguments& arguments) {
    app.add_option("ID", arguments.id, "The value of the instance's INSTANCE_ID")->required()->type_name("");
}

// Everything that CLI11 is told, with the places where it puts what it reads.
class CommandLine {
 public:
    CommandLine() {
        app_.name("mgmtctl");
        app_.footer(FOOTER);
        app_.require_subcommand(1);
        AddCommonOptions(app_, arguments_, namespace_text_);
        AddImport();
        Add(Command::NAMESPACES, "namespaces", "List the namespaces, below --namespace or all");
        CLI::App& classes = Add(Command::CLASSES, "classes", "List the classes of the namespace");
        classes.add_option("SUPERCLASS", arguments_.class_name, "Only the classes derived from this one")
            ->type_name("");
        AddClass(Add(Command::DESCRIBE, "describe", "Show the properties of a class"), arguments_);
        AddGet();
        AddSet();
        CLI::App& remove = Add(Command::DELETE_INSTANCE, "delete", "Delete an instance");
        AddClass(remove, arguments_);
        AddId(remove, arguments_);
    }

    Arguments Read(int argc, const char* const* argv) {
        Parse(argc, argv);
        for (const auto& [command, app] : commands_) {
            if (app->parsed()) arguments_.command = command;
        }
        arguments_.is_namespace_given = namespace_text_.has_value();
        arguments_.namespace_path = ReadNamespacePath(namespace_text_.value_or(DEFAULT_NAMESPACE));
        ReadTarget();
        ReadAssignments();
        return std::move(arguments_);
    }

 private:
    CLI::App& Add(Command command, const char* name, const char* description) {
        CLI::App& app = *app_.add_subcommand(name, description);
        AddCommonOptions(app, arguments_, namespace_text_);
        commands_[command] = &app;
        return app;
    }

    void AddImport() {
        CLI::App& import =
            Add(Command::IMPORT, "import", "Store the classes and instances that MOF files declare");
        import.add_option("FILE", arguments_.files, "The files, one import together: all of it or nothing")
            ->required()
            ->type_name("");
        import.add_flag("--check", arguments_.is_check, "Only check the files; store nothing");
    }

    void AddGet() {
        CLI::App& get = Add(Command::GET, "get", "Show an instance");
        get.add_option("CLASS|PATH", first_, "The name of the class, or the path of the instance alone")
            ->required()
            ->type_name("");
        id_of_get_ = get.add_option("ID", arguments_.id, "The value of the instance's INSTANCE_ID");
        id_of_get_->type_name("");
        get.footer(GET_FOOTER);
    }

    void AddSet() {
        CLI::App& set = Add(Command::SET, "set", "Change properties of an instance, or make one");
        AddClass(set, arguments_);
        AddId(set, arguments_);
        set.add_option("NAME=VALUE", assignment_texts_, "The properties and their values")->type_name("");
        set.add_flag("--create", arguments_.is_create, "Make the instance if it does not exist");
        set.footer(SET_FOOTER);
    }

    void Parse(int argc, const char* const* argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::CallForHelp&) {
            throw HelpWanted{app_.help()};
        } catch (const CLI::RequiredError& error) {
            if (!app_.get_subcommands().empty()) throw UsageFailure(error.what());
            const std::vector<std::string> unknown = app_.remaining();
            throw UsageFailure(unknown.empty() ? "a command is needed"
                                               : "there is no command \"" + unknown.front() + "\"");
        } catch (const CLI::ParseError& error) {
            throw UsageFailure(error.what());
        }
    }

    void ReadTarget() {
        if (arguments_.command == Command::GET) {
            (id_of_get_->count() == 0 ? arguments_.path : arguments_.class_name) = first_;
        }
        const bool has_id = arguments_.command == Command::SET ||
                            arguments_.command == Command::DELETE_INSTANCE ||
                            (arguments_.command == Command::GET && id_of_get_->count() != 0);
        if (has_id && arguments_.id.empty()) throw UsageFailure("the id must not be empty");
        const bool may_lack_class = arguments_.command == Command::IMPORT ||
                                    arguments_.command == Command::NAMESPACES ||
                                    arguments_.command == Command::CLASSES;
        if (!may_lack_class && arguments_.class_name.empty() && arguments_.path.empty())
            throw UsageFailure("the class must not be empty");
    }

    void ReadAssignments() {
        for (const std::string& text : assignment_texts_) {
            const std::size_t equals = text.find('=');
            if (equals == std::string::npos || equals == 0)
                throw UsageFailure("\"" + text + "\" is not of the form NAME=VALUE");
            arguments_.assignments.push_back({text.substr(0, equals), text.substr(equals + 1)});
        }
        if (arguments_.command == Command::SET && arguments_.assignments.empty() && !arguments_.is_create)
            throw UsageFailure("set needs a NAME=VALUE, or --create");
    }

    CLI::App app_{ABOUT};
    std::map<Command, CLI::App*> commands_;
    CLI::Option* id_of_get_ = nullptr;

    Arguments arguments_;
    std::optional<std::string> namespace_text_;
    std::string first_;
    std::vector<std::string> assignment_texts_;
};

void CheckUtf8(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) {
        if (!TryWide(argv[i])) throw UsageFailure("argument " + std::to_string(i) + " is not valid UTF-8");
    }
}

}  // namespace

Arguments ReadArguments(int argc, const char* const* argv) {
    CheckUtf8(argc, argv);
    return CommandLine().Read(argc, argv);
}

std::wstring ReadNamespacePath(std::string_view text) {
    std::wstring path = Wide(text);
    std::replace(path.begin(), path.end(), L'/', L'\\');
    if (path.empty() || path.back() == L'\\') throw UsageFailure("the namespace must end with a name");
    return path.starts_with(L"\\\\") ? path : L"\\\\.\\" + path;
}

}  // namespace mgmtctl
