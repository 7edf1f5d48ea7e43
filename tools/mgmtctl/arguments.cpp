#include "tools/mgmtctl/arguments.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <initializer_list>
#include <map>
#include <optional>
#include <sstream>
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
  mgmtctl export --instances --output all.mof   write a namespace as MOF, which imports as the same again
  mgmtctl namespaces                       list the namespaces
  mgmtctl classes                          list the classes of the namespace
  mgmtctl describe RetentionPolicy         show what a class has and what is said of it
  mgmtctl graph RetentionPolicy | dot -Tsvg > classes.svg   draw its relations to other classes
  mgmtctl list Mailbox --where 'ItemCount > 5000' --properties INSTANCE_ID,ItemCount --sort ItemCount:desc
  mgmtctl query "SELECT * FROM Policy WHERE Enabled = FALSE" --json
  mgmtctl count Mailbox                    count the instances of a class
  mgmtctl get RetentionPolicy mail         show an instance by its class and INSTANCE_ID
  mgmtctl get 'RetentionPolicy.INSTANCE_ID="mail"' --json
  mgmtctl xml RetentionPolicy mail         show an instance as XML text
  mgmtctl create RetentionPolicy press KeepDays=30 DisplayName=Press
  mgmtctl set RetentionPolicy mail KeepDays=30 'Tags=["hr","legal"]' Note=null
  mgmtctl set RetentionPolicy new DisplayName=New --create
  mgmtctl set 'Link.From="a",To="b"' Weight=1 --create     where INSTANCE_ID is not the key
  mgmtctl delete RetentionPolicy new
  mgmtctl watch RetentionPolicy            show what others change, as it happens, until Ctrl-C
  mgmtctl check                            read every record and say what is damaged
  mgmtctl backup /backup/mgmt-monday       copy the store while it is in use
  mgmtctl reload-event wait                wait until a process of the product asks for a reload

The data lie in a store on this machine; the environment variable MGMT_STORE names its folder.
Exit codes: 0 done, 1 the operation failed, 2 the command line makes no sense.)";

constexpr const char* VALUES_FOOTER =
    R"(Values are read by the declared type of the property ("mgmtctl describe CLASS" shows it):
  KeepDays=30  Size=0x10000        an integer
  Weight=0.5                       a real
  Enabled=true                     a boolean
  DisplayName=Mail                 text, as it stands
  DisplayName="\"null\""           text in double quotes is read as a JSON string: here the text null
  Since=2026-11-22T10:30:00+01:00  a date and time, ISO 8601 or CIM (20261122103000.000000+060);
                                   without an offset it is taken as UTC
  Timeout=00000001120000.000000:000  an interval: 1 day and 12 hours
  Grade=A                          one character (char16), or its number, as in Grade=65
  Volume=Volume.INSTANCE_ID="v1"   a reference, the path of an instance
  'Tags=["a","b"]'  'Sizes=[1,2]'  an array, as JSON; [] is an array without elements
  Note=null                        null: no value
  KeepDays=unset                   as if it had never been set: the default of the class
Embedded objects can be imported and read, but not set here.)";

constexpr const char* LIST_FOOTER =
    R"(Rows are printed as they are read; --json prints one object a line. An array or an object that would not
fit a table's row is shortened and says so; --json and --full show all of it. On a terminal rows are cut to its
width, but for --full. When the reader of the output goes away (| head), the listing ends.
Conditions, as in --where "KeepDays > 30 AND DisplayName LIKE 'Mail%'":
  = != <> < > <= >=   LIKE 'a%' '_b' '[a-f]%'   IS NULL   IS NOT NULL   AND OR NOT ( )
  Texts stand in quotes and compare without regard to case; __CLASS ISA "Policy" asks for a class.)";

constexpr const char* WATCH_FOOTER =
    R"(Examples:
  mgmtctl watch Policy                               all that happens to policies, of subclasses too
  mgmtctl watch RetentionPolicy --id mail --on modify
  mgmtctl watch Mailbox --on create,delete --json    one object a line
  mgmtctl watch --query 'SELECT * FROM __InstanceModificationEvent WHERE TargetInstance ISA "RetentionPolicy"
    AND TargetInstance.KeepDays < 30 AND PreviousInstance.KeepDays >= 30'
Shows what is changed from when it says "watching". What comes faster than it can be shown is kept by the
service up to a limit; where that is exceeded, the watch says that events were lost and goes on.)";

constexpr const char* EXPORT_FOOTER =
    R"(Without CLASS all classes are written. Named ones come with the classes below them, and with what those
need: superclasses, and the classes that they refer to or embed. Qualifier declarations come first, a class
behind its superclass, instances by class and key; the same namespace gives the same text. Instances are
written as they are read: those of one class as they were when its listing began. A file named by --output is
written whole or not at all.)";

constexpr const char* GET_FOOTER =
    R"(What nobody has set reads as its class's default, or as null where that has none: the table says
(default) behind it, and --json names such properties in __UNSET.
An id that begins with a dash, or is "++", comes after "--": mgmtctl get RetentionPolicy -- -1)";

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
        AddClass(Add(Command::DESCRIBE, "describe", "Show what a class has and what is said of it"),
                 arguments_);
        AddExport();
        AddGraph();
        AddList();
        AddQuery();
        AddCount();
        AddGet();
        AddXml();
        AddCreate();
        AddSet();
        AddTarget(Add(Command::DELETE_INSTANCE, "delete", "Delete an instance"));
        AddWatch();
        AddReloadEvent();
        Add(Command::CHECK, "check", "Read every record of the store and say what is damaged");
        AddBackup();
        Add(Command::LIMITS, "limits", "Show every limit, and how much of it the store uses");
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
        ReadListing();
        ReadWatch();
        ReadExport();
        ReadBackup();
        if (timeout_text_) arguments_.timeout = ReadSeconds(*timeout_text_);
        return std::move(arguments_);
    }

 private:
    CLI::App& Add(Command command, const char* name, const char* description) {
        return AddTo(app_, command, name, description);
    }

    CLI::App& AddTo(CLI::App& parent, Command command, const char* name, const char* description) {
        CLI::App& app = *parent.add_subcommand(name, description);
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
        import.add_flag(
            "--force", arguments_.is_forced,
            "Let a changed class change its instances: values that fit are kept, others are lost");
    }

    void AddExport() {
        CLI::App& app = Add(Command::EXPORT, "export", "Write classes and instances as MOF");
        CLI::Option* const classes =
            app.add_option("CLASS", arguments_.class_names, "Only these classes, and what they need");
        classes->type_name("");
        app.add_flag("--instances", arguments_.has_instances, "The instances, too");
        app.add_flag("--recursive", arguments_.is_recursive, "The namespaces below, too")->excludes(classes);
        app.add_option("--output", export_file_, "Write to this file")->type_name("FILE");
        app.footer(EXPORT_FOOTER);
    }

    void AddGraph() {
        Add(Command::GRAPH, "graph", "Write the class diagram in the language of Graphviz")
            .add_option("CLASS", arguments_.class_name, "Only this class and those it has to do with")
            ->type_name("");
    }

    void AddBackup() {
        CLI::App& app = Add(Command::BACKUP, "backup", "Copy the store while it is in use");
        app.add_option("PATH", arguments_.output, "The copy: a new directory, a store of its own")
            ->required()
            ->type_name("");
    }

    void AddList() {
        CLI::App& list =
            Add(Command::LIST, "list", "List the instances of a class and of the classes below it");
        AddSelection(list);
        list.add_option("--properties", properties_text_, "Show these properties, in this order")
            ->type_name("A,B,...");
        AddListing(list);
    }

    void AddQuery() {
        CLI::App& query = Add(Command::QUERY, "query", "List the instances that a query finds");
        query
            .add_option("QUERY", arguments_.query, "Such as \"SELECT * FROM Mailbox WHERE ItemCount > 5000\"")
            ->required()
            ->type_name("");
        AddListing(query);
    }

    void AddCount() {
        AddSelection(
            Add(Command::COUNT, "count", "Count the instances of a class and of the classes below it"));
    }

    // Which instances of a class.
    void AddSelection(CLI::App& app) {
        AddClass(app, arguments_);
        // A script's empty variable must not stand for all instances.
        app.add_option("--where", arguments_.where, "Only the instances for which this holds")
            ->type_name("CONDITION")
            ->each([](const std::string& condition) {
                if (condition.empty()) throw UsageFailure("the condition must not be empty");
            });
        CLI::Option* const shallow =
            app.add_flag("--shallow", arguments_.is_shallow, "Only instances of the class itself");
        app.add_flag("--deep", is_deep_, "Those of its subclasses, too: the default")->excludes(shallow);
    }

    // How they are shown.
    void AddListing(CLI::App& app) {
        app.add_option(
               "--sort", sort_text_,
               "Sort by this property, with :desc behind it from the greatest to the least; null comes "
               "first. All rows are held in memory")
            ->type_name("NAME[:desc]");
        app.add_option("--limit", limit_text_, "Print this many at most")->type_name("NUMBER");
        AddFull(app);
        app.footer(LIST_FOOTER);
    }

    void AddFull(CLI::App& app) {
        app.add_flag("--full", arguments_.listing.is_full,
                     "Show long arrays, objects and lines to their ends in a table");
    }

    void AddTarget(CLI::App& app) {
        app.add_option("CLASS|PATH", first_, "The name of the class, or the path of the instance alone")
            ->required()
            ->type_name("");
        CLI::Option* const id =
            app.add_option("ID", arguments_.id, "The value of the instance's INSTANCE_ID");
        id->type_name("");
        ids_that_may_lack_.push_back(id);
    }

    void AddGet() {
        CLI::App& get = Add(Command::GET, "get", "Show an instance");
        AddTarget(get);
        AddFull(get);
        get.footer(GET_FOOTER);
    }

    void AddXml() {
        AddTarget(Add(Command::XML, "xml", "Show an instance, or a class by its name alone, as XML text"));
    }

    void AddAssignments(CLI::App& app) {
        app.add_option("NAME=VALUE", assignment_texts_, "The properties and their values")->type_name("");
        app.footer(VALUES_FOOTER);
    }

    void AddCreate() {
        CLI::App& create = Add(Command::CREATE, "create", "Make an instance that does not exist yet");
        AddClass(create, arguments_);
        AddId(create, arguments_);
        AddAssignments(create);
    }

    void AddSet() {
        CLI::App& set = Add(Command::SET, "set", "Change properties of an instance, or make one");
        AddTarget(set);
        AddAssignments(set);
        set.add_flag("--create", arguments_.is_create, "Make the instance if it does not exist");
    }

    void AddWatch() {
        CLI::App& watch = Add(Command::WATCH, "watch", "Show what happens to instances, as it happens");
        CLI::Option* const class_name =
            watch.add_option("CLASS", arguments_.class_name, "The class; those below it count, too");
        class_name->type_name("");
        watch.add_option("--id", watched_id_, "Only the instance with this INSTANCE_ID")
            ->type_name("ID")
            ->needs(class_name);
        watch.add_option("--on", kinds_text_, "Only these of create, modify and delete")
            ->type_name("KIND,...")
            ->needs(class_name);
        watch.add_option("--query", watch_query_, "The events that this query asks for")
            ->type_name("QUERY")
            ->excludes(class_name);
        watch.add_option("--count", event_count_text_, "End after this many events")->type_name("NUMBER");
        AddFull(watch);
        watch.footer(WATCH_FOOTER);
    }

    void AddReloadEvent() {
        CLI::App& reload = *app_.add_subcommand(
            "reload-event", "Wait for, or signal, the event that has the product's processes reload");
        reload.require_subcommand(1);
        CLI::App& wait =
            AddTo(reload, Command::WAIT_FOR_RELOAD, "wait", "Wait until the event is signalled once");
        wait.add_option("--timeout", timeout_text_, "Fail when it is not within this time")
            ->type_name("SECONDS");
        AddTo(reload, Command::SIGNAL_RELOAD, "signal", "Signal the event; one of those who wait is let on");
    }

    void Parse(int argc, const char* const* argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::CallForHelp&) {
            throw HelpWanted{app_.help()};
        } catch (const CLI::RequiredError& error) {
            RefuseCommand(error);
        } catch (const CLI::ParseError& error) {
            throw UsageFailure(error.what());
        }
    }

    // Where no command, or none that there is, stands where one is required.
    [[noreturn]] void RefuseCommand(const CLI::RequiredError& error) const {
        const std::vector<CLI::App*> given = app_.get_subcommands();
        const CLI::App& group = given.empty() ? app_ : *given.front();
        if (group.get_require_subcommand_min() == 0) throw UsageFailure(error.what());
        const std::string front = given.empty() ? "" : group.get_name() + " ";
        const std::vector<std::string> unknown = app_.remaining(true);
        if (!unknown.empty()) throw UsageFailure("there is no command \"" + front + unknown.front() + "\"");
        throw UsageFailure("a command is needed" + (given.empty() ? "" : " behind " + group.get_name()));
    }

    bool IsAnyOf(std::initializer_list<Command> commands) const {
        return std::find(commands.begin(), commands.end(), arguments_.command) != commands.end();
    }

    void ReadTarget() {
        if (IsAnyOf({Command::GET, Command::XML, Command::SET, Command::DELETE_INSTANCE})) ReadInstance();
        const bool has_id = arguments_.command == Command::CREATE || IsIdGiven();
        if (has_id && arguments_.path.empty() && arguments_.id.empty())
            throw UsageFailure("the id must not be empty");
        const bool may_lack_class =
            IsAnyOf({Command::IMPORT, Command::NAMESPACES, Command::CLASSES, Command::QUERY, Command::WATCH,
                     Command::WAIT_FOR_RELOAD, Command::SIGNAL_RELOAD, Command::EXPORT, Command::GRAPH,
                     Command::CHECK, Command::BACKUP, Command::LIMITS});
        if (!may_lack_class && arguments_.class_name.empty() && arguments_.path.empty())
            throw UsageFailure("the class must not be empty");
        if (arguments_.command == Command::QUERY && arguments_.query.empty())
            throw UsageFailure("the query must not be empty");
    }

    bool IsIdGiven() const {
        return std::any_of(ids_that_may_lack_.begin(), ids_that_may_lack_.end(),
                           [](const CLI::Option* id) { return id->count() != 0; });
    }

    // A path has an equals sign, the name of a class has none. What stands alone may be a class, too, which
    // only some of the commands take.
    void ReadInstance() {
        const bool is_changed = IsAnyOf({Command::SET, Command::DELETE_INSTANCE});
        const bool has_equals = is_changed && first_.find('=') != std::string::npos;
        const bool is_path = has_equals || !IsIdGiven();
        (is_path ? arguments_.path : arguments_.class_name) = first_;
        if (!is_path || !is_changed) return;
        if (IsIdGiven() && arguments_.command == Command::DELETE_INSTANCE)
            throw UsageFailure("a path stands alone: no id goes with it");
        // What stands behind a path is read as an id at first.
        if (IsIdGiven())
            assignment_texts_.insert(assignment_texts_.begin(), std::exchange(arguments_.id, {}));
        TakeNamespaceOffPath();
    }

    // What is changed is changed in the namespace that the path names.
    void TakeNamespaceOffPath() {
        const std::size_t end = arguments_.path.find_first_of("\"'=:");
        if (end == std::string::npos || arguments_.path[end] != ':') return;
        arguments_.namespace_path = ReadNamespacePath(arguments_.path.substr(0, end));
        arguments_.path.erase(0, end + 1);
    }

    void ReadBackup() const {
        if (arguments_.command == Command::BACKUP && arguments_.output.empty())
            throw UsageFailure("the path of the backup must not be empty");
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

    void ReadListing() {
        if (limit_text_) arguments_.listing.limit = ReadCount(*limit_text_, "instances");
        if (properties_text_) arguments_.listing.properties = SplitNames(*properties_text_, "properties");
        if (!sort_text_) return;
        const std::size_t colon = sort_text_->find(':');
        arguments_.listing.sort = sort_text_->substr(0, colon);
        const std::string order = colon == std::string::npos ? "asc" : sort_text_->substr(colon + 1);
        if (arguments_.listing.sort.empty() || (order != "asc" && order != "desc"))
            throw UsageFailure("\"" + *sort_text_ + "\" is not of the form NAME, NAME:asc or NAME:desc");
        arguments_.listing.is_descending = order == "desc";
    }

    void ReadWatch() {
        if (arguments_.command != Command::WATCH) return;
        if (watch_query_) arguments_.query = *watch_query_;
        if (watched_id_) arguments_.id = *watched_id_;
        if (arguments_.class_name.empty() && arguments_.query.empty())
            throw UsageFailure("watch needs a CLASS, or a --query");
        if (watched_id_ && arguments_.id.empty()) throw UsageFailure("the id must not be empty");
        if (kinds_text_) ReadKinds(*kinds_text_);
        if (!event_count_text_) return;
        arguments_.event_count = ReadCount(*event_count_text_, "events");
        if (arguments_.event_count == 0) throw UsageFailure("to watch no event makes no sense");
    }

    void ReadExport() {
        if (arguments_.command != Command::EXPORT) return;
        const auto& names = arguments_.class_names;
        if (std::find(names.begin(), names.end(), std::string()) != names.end())
            throw UsageFailure("the class must not be empty");
        if (export_file_ && export_file_->empty())
            throw UsageFailure("the name of the file must not be empty");
        if (arguments_.is_json && !export_file_)
            throw UsageFailure("export prints MOF: --json goes with --output");
        arguments_.output = export_file_.value_or("");
    }

    void ReadKinds(const std::string& text) {
        const std::map<std::string, EventKind> kinds = {
            {"create", EventKind::CREATED}, {"modify", EventKind::MODIFIED}, {"delete", EventKind::DELETED}};
        for (const std::string& name : SplitNames(text, "kinds")) {
            const auto kind = kinds.find(name);
            if (kind == kinds.end())
                throw UsageFailure("\"" + name + "\" is none of create, modify and delete");
            arguments_.kinds.insert(kind->second);
        }
    }

    static std::chrono::milliseconds ReadSeconds(const std::string& text) {
        constexpr double MOST = 1e9;
        double seconds = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, fault] = std::from_chars(text.data(), end, seconds);
        const bool is_time = fault == std::errc() && stop == end && seconds >= 0 && seconds <= MOST;
        if (!is_time) throw UsageFailure("\"" + text + "\" is not a number of seconds");
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
    }

    static std::size_t ReadCount(const std::string& text, const std::string& of_what) {
        std::size_t count = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, fault] = std::from_chars(text.data(), end, count);
        if (fault != std::errc() || stop != end)
            throw UsageFailure("\"" + text + "\" is not a number of " + of_what);
        return count;
    }

    static std::vector<std::string> SplitNames(const std::string& text, const std::string& of_what) {
        std::vector<std::string> names;
        std::istringstream rest(text);
        for (std::string name; std::getline(rest, name, ',');)
            names.push_back(name);
        const bool has_gap = text.empty() || text.back() == ',' ||
                             std::find(names.begin(), names.end(), std::string()) != names.end();
        if (has_gap) throw UsageFailure("the names of the " + of_what + " must not be empty");
        return names;
    }

    CLI::App app_{ABOUT};
    std::map<Command, CLI::App*> commands_;
    std::vector<const CLI::Option*> ids_that_may_lack_;

    Arguments arguments_;
    std::optional<std::string> namespace_text_;
    std::optional<std::string> properties_text_;
    std::optional<std::string> sort_text_;
    std::optional<std::string> limit_text_;
    std::optional<std::string> watched_id_;
    std::optional<std::string> watch_query_;
    std::optional<std::string> kinds_text_;
    std::optional<std::string> event_count_text_;
    std::optional<std::string> timeout_text_;
    std::optional<std::string> export_file_;
    bool is_deep_ = false;  // said aloud
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
