#include <synchapi.h>

#include <cstddef>
#include <new>
#include <string_view>
#include <utility>

#include <wchar.h>

#include <handleapi.h>
#include <winbase.h>

#include "platform/system/event.h"
#include "platform/system/handle_table.h"

namespace {

using mgmt_platform::Event;
using mgmt_platform::EventKind;
using mgmt_platform::EventResult;
using mgmt_platform::HandleTable;

constexpr std::wstring_view PREFIXES[] = {L"Global\\", L"Local\\"};

// Leaves what stands behind the prefix in `name`; else why the name cannot be one.
DWORD ReadName(LPCWSTR text, std::wstring_view& name) noexcept {
    const std::size_t length = wcsnlen(text, MAX_PATH + 1);
    if (length > MAX_PATH) return ERROR_FILENAME_EXCED_RANGE;
    name = std::wstring_view(text, length);
    for (const std::wstring_view prefix : PREFIXES) {
        if (!name.starts_with(prefix)) continue;
        name.remove_prefix(prefix.size());
        break;
    }
    if (name.empty()) return ERROR_INVALID_NAME;
    return name.find(L'\\') == std::wstring_view::npos ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

HANDLE NoHandle(DWORD error) noexcept {
    SetLastError(error);
    return nullptr;
}

// `make` makes the event while the table may be changed.
template <class Make>
HANDLE MakeHandle(DWORD access, DWORD& error, const Make& make) noexcept try {
    const HandleTable::Change change(HandleTable::OfProcess());
    EventResult result = make();
    error = result.error;
    return result.event != nullptr ? change.Add(std::move(result.event), access) : nullptr;
} catch (const std::bad_alloc&) {
    error = ERROR_NOT_ENOUGH_MEMORY;
    return nullptr;
}

// Calls `act` with the handle's event, when the handle is open and has the right.
template <class Action>
bool WithEvent(HANDLE handle, DWORD right, const Action& act) noexcept {
    const HandleTable::Use use(HandleTable::OfProcess(), handle);
    if (use.event() == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    if ((use.access() & right) == 0) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    act(*use.event());
    return true;
}

}  // namespace

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState,
                           LPCWSTR lpName) noexcept {
    if (lpEventAttributes != nullptr) return NoHandle(ERROR_INVALID_PARAMETER);
    const EventKind kind = bManualReset != FALSE ? EventKind::manual : EventKind::automatic;
    const bool is_set = bInitialState != FALSE;
    std::wstring_view name;
    if (lpName != nullptr) {
        if (const DWORD error = ReadName(lpName, name); error != ERROR_SUCCESS) return NoHandle(error);
    }
    DWORD error = ERROR_SUCCESS;
    const HANDLE handle = MakeHandle(EVENT_ALL_ACCESS, error, [&] {
        return lpName == nullptr ? Event::CreateUnnamed(kind, is_set) : Event::Create(name, kind, is_set);
    });
    SetLastError(error);
    return handle;
}

HANDLE WINAPI OpenEventW(DWORD dwDesiredAccess, BOOL /*bInheritHandle*/, LPCWSTR lpName) noexcept {
    if (lpName == nullptr) return NoHandle(ERROR_INVALID_PARAMETER);
    std::wstring_view name;
    if (const DWORD error = ReadName(lpName, name); error != ERROR_SUCCESS) return NoHandle(error);
    if ((dwDesiredAccess & ~EVENT_ALL_ACCESS) != 0) return NoHandle(ERROR_ACCESS_DENIED);
    DWORD error = ERROR_SUCCESS;
    const HANDLE handle = MakeHandle(dwDesiredAccess, error, [&] { return Event::Open(name); });
    return handle != nullptr ? handle : NoHandle(error);
}

BOOL WINAPI SetEvent(HANDLE hEvent) noexcept {
    return WithEvent(hEvent, EVENT_MODIFY_STATE, [](const Event& event) { event.word().Set(event.kind()); });
}

BOOL WINAPI ResetEvent(HANDLE hEvent) noexcept {
    return WithEvent(hEvent, EVENT_MODIFY_STATE,
                     [](const Event& event) { event.word().Reset(event.kind()); });
}

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) noexcept {
    bool was_let_through = false;
    const bool was_done = WithEvent(hHandle, SYNCHRONIZE, [&](const Event& event) {
        was_let_through = event.word().Wait(event.kind(), dwMilliseconds);
    });
    if (!was_done) return WAIT_FAILED;
    return was_let_through ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL WINAPI CloseHandle(HANDLE hObject) noexcept {
    const HandleTable::Change change(HandleTable::OfProcess());
    if (change.Close(hObject)) return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}
