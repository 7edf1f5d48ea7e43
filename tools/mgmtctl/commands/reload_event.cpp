#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <comdef.h>
#include <windows.h>

#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/interruption.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const wchar_t* RELOAD_EVENT = L"_KESTO_POLICY_RELOAD_SETTING_EVENT_";

// The event cannot be waited for together with Ctrl-C, so that this is looked for in between.
constexpr std::chrono::milliseconds BETWEEN_LOOKS = 50ms;

struct HandleCloser {
    void operator()(void* handle) const noexcept { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

[[noreturn]] void Fail(const char* attempt) {
    const _com_error error(HRESULT_FROM_WIN32(GetLastError()));
    throw OperationFailure(std::string(attempt) + ": " + Utf8(error.ErrorMessage()));
}

enum class Wait { SIGNALLED, TIMED_OUT, INTERRUPTED };

Wait WaitFor(HANDLE event, const std::optional<std::chrono::milliseconds>& timeout,
             const Interruption& interruption) {
    const Clock::time_point begin = Clock::now();
    while (true) {
        const auto left = timeout
                              ? std::chrono::ceil<std::chrono::milliseconds>(begin + *timeout - Clock::now())
                              : BETWEEN_LOOKS;
        const auto now = std::clamp(left, 0ms, BETWEEN_LOOKS);
        const DWORD result = WaitForSingleObject(event, static_cast<DWORD>(now.count()));
        if (result == WAIT_OBJECT_0) return Wait::SIGNALLED;
        if (result != WAIT_TIMEOUT) Fail("cannot wait for the reload event");
        if (interruption.HasCome()) return Wait::INTERRUPTED;
        if (left <= BETWEEN_LOOKS && timeout) return Wait::TIMED_OUT;
    }
}

void PrintSignalled(const Arguments& arguments) {
    if (arguments.is_json) return PrintJson({{"result", "signalled"}});
    std::cout << "the reload event was signalled\n";
}

}  // namespace

void WaitForReload(const Arguments& arguments) {
    const Interruption interruption;
    const Handle event(CreateEventW(nullptr, FALSE, FALSE, RELOAD_EVENT));
    if (event == nullptr) Fail("cannot make the reload event");
    std::cerr << "waiting for " + Utf8(RELOAD_EVENT) + "; Ctrl-C ends\n";
    switch (WaitFor(event.get(), arguments.timeout, interruption)) {
        case Wait::SIGNALLED:
            return PrintSignalled(arguments);
        case Wait::TIMED_OUT:
            throw OperationFailure("the reload event was not signalled in time");
        case Wait::INTERRUPTED:
            return;
    }
}

void SignalReload(const Arguments& arguments) {
    const Handle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, RELOAD_EVENT));
    if (event == nullptr && GetLastError() == ERROR_FILE_NOT_FOUND)
        throw OperationFailure("nobody waits for the reload event",
                               "\"mgmtctl reload-event wait\" in another terminal waits for it.");
    if (event == nullptr) Fail("cannot open the reload event");
    if (SetEvent(event.get()) == FALSE) Fail("cannot signal the reload event");
    PrintSignalled(arguments);
}

}  // namespace mgmtctl
