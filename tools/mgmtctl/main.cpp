// mgmtctl: what an administrator or a developer types to see and change management data.
#include <clocale>
#include <csignal>
#include <exception>
#include <iostream>

#include <comdef.h>
#include <fcntl.h>
#include <objbase.h>
#include <unistd.h>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/output.h"
#include "tools/mgmtctl/text.h"
#include "utility/management/mgmt.h"

namespace mgmtctl {
namespace {

enum ExitCode { DONE = 0, FAILED_OPERATION = 1, FAILED_USAGE = 2 };

// COM on this thread, and the library's default scope for the namespace asked for, while a command runs.
class Session {
 public:
    explicit Session(const std::wstring& namespace_path) {
        Check(CoInitializeEx(nullptr, COINIT_MULTITHREADED), "cannot initialise COM");
        MgmtInitialize(namespace_path.c_str());
    }
    // The default scope holds the connection, which has to go before COM does.
    ~Session() {
        try {
            MgmtUninitialize();
        } catch (...) {
            return;
        }
        CoUninitialize();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
};

void Run(const Arguments& arguments) {
    const Session session(arguments.namespace_path);
    switch (arguments.command) {
        case Command::IMPORT:
            return Import(arguments);
        case Command::NAMESPACES:
            return ListNamespaces(arguments);
        case Command::CLASSES:
            return ListClasses(arguments);
        case Command::DESCRIBE:
            return Describe(arguments);
        case Command::EXPORT:
            return Export(arguments);
        case Command::GRAPH:
            return Graph(arguments);
        case Command::LIST:
            return List(arguments);
        case Command::QUERY:
            return Query(arguments);
        case Command::COUNT:
            return Count(arguments);
        case Command::GET:
            return Get(arguments);
        case Command::XML:
            return ShowXml(arguments);
        case Command::CREATE:
            return Create(arguments);
        case Command::SET:
            return Set(arguments);
        case Command::DELETE_INSTANCE:
            return Delete(arguments);
        case Command::WATCH:
            return Watch(arguments);
        case Command::WAIT_FOR_RELOAD:
            return WaitForReload(arguments);
        case Command::SIGNAL_RELOAD:
            return SignalReload(arguments);
        case Command::CHECK:
            return CheckStore(arguments);
        case Command::BACKUP:
            return Backup(arguments);
        case Command::LIMITS:
            return ShowLimits(arguments);
    }
}

ExitCode Report(ExitCode code, const std::string& sentence, const std::string& advice) {
    std::cerr << "mgmtctl: " << Printable(sentence) << '\n';
    if (!advice.empty()) std::cerr << "hint: " << Printable(advice) << '\n';
    return code;
}

ExitCode Main(int argc, const char* const* argv) {
    try {
        Run(ReadArguments(argc, argv));
        FlushOutput();
        return DONE;
    } catch (const HelpWanted& help) {
        std::cout << help.text << std::flush;
        return DONE;
    } catch (const ReaderGone&) {
        return DONE;
    } catch (const UsageFailure& failure) {
        return Report(FAILED_USAGE, failure.what(),
                      "\"mgmtctl COMMAND --help\" shows how a command is used.");
    } catch (const OperationFailure& failure) {
        return Report(FAILED_OPERATION, failure.what(), failure.advice());
    } catch (const _com_error& error) {
        return Report(FAILED_OPERATION, Utf8(error.ErrorMessage()), "");
    } catch (const std::exception& error) {
        return Report(FAILED_OPERATION, error.what(), "");
    }
}

// Where a standard stream is closed, the store's files would be opened in its place, and be printed into.
// What stands there instead cannot be read or written either.
void OccupyStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

}  // namespace
}  // namespace mgmtctl

int main(int argc, char** argv) {
    mgmtctl::OccupyStandardStreams();
    // All text is UTF-8, whatever the environment says.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    // Writing fails instead, and the command ends as it should.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    return mgmtctl::Main(argc, argv);
}
