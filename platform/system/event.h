// Event is one opening of an event: the mapped state and, where the event has a name, the hold on its file.
// For the files of this folder only.
//
//   EventResult result = Event::Create(L"Reload", EventKind::automatic, false);
//   if (result.event == nullptr) return Fail(result.error);
//   result.event->word().Set(result.event->kind());
//
// The word may be used by any thread. Making, destroying and LetGoOfFile take turns within the process, and
// no thread may fork meanwhile (see handle_table.h): a child would keep a lock that it knows nothing of.
//
// The file. A named event is a file of one EventPage in the system's shared memory, which every process sees
// and which is empty when the system starts. Two of its bytes carry locks, which belong to open files
// (F_OFD_SETLK) and so end with the last process that has one, however it ends:
//
//   GATE  exclusive, for a moment, while the event is created, opened or left
//   HOLD  shared, by every opening, for as long as it lives
//
// Behind its gate, a file that nobody holds is no event: Create makes it anew, whatever it contains, Open
// removes it. So a process may be killed between any two steps. A file loses its name only behind its own
// gate, and who waited for the gate of a file that has lost its name looks the name up again. Whether
// somebody holds is asked on a second open file, since a forked child shares the first and with it the lock.
//
// Files of other users, and whatever else lies under the name, are refused, not trusted. A process of the
// same user that writes into the file or shortens it is not guarded against.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <windef.h>

#include "platform/system/event_word.h"
#include "platform/system/file_descriptor.h"

namespace mgmt_platform {

// What the file and the shared memory of an event without a name contain.
struct EventPage {
    std::uint32_t magic;
    EventKind kind;
    EventWord word;
    std::uint32_t name_length;
    // The file's name has a part of it and a hash. What follows the name is 0.
    wchar_t name[MAX_PATH];
};

class Event;

struct EventResult {
    std::unique_ptr<Event> event;
    // As GetLastError returns it; with an event ERROR_SUCCESS, or ERROR_ALREADY_EXISTS from Create.
    DWORD error;
};

class Event {
 public:
    // Names have 1 to MAX_PATH units and no prefix. Memory that runs out in the process is thrown.
    static EventResult CreateUnnamed(EventKind kind, bool is_set);
    static EventResult Create(std::wstring_view name, EventKind kind, bool is_set);
    static EventResult Open(std::wstring_view name);

    // Removes the file when nobody else holds it.
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    EventWord& word() const noexcept { return page_->word; }
    // As it was when the event was opened.
    EventKind kind() const noexcept { return kind_; }

    // Does what destroying does to the file. The word may still be used, but is nobody else's any more.
    void LetGoOfFile() noexcept;

 private:
    struct Unmap {
        void operator()(EventPage* page) const noexcept;
    };
    using Page = std::unique_ptr<EventPage, Unmap>;
    struct Wanted;
    struct Gated;

    Event(std::string path, EventKind kind) noexcept : path_(std::move(path)), kind_(kind) {}

    static EventResult Attach(const Wanted& wanted);
    static Gated PassGate(const std::string& path, bool may_create) noexcept;

    DWORD AttachFile(const Wanted& wanted) noexcept;
    DWORD Join(const Wanted& wanted) noexcept;
    DWORD Make(const Wanted& wanted) noexcept;
    DWORD Hold() noexcept;
    bool Map(int flags) noexcept;
    void LeaveFile() noexcept;

    std::string path_;
    FileDescriptor file_;
    Page page_;
    EventKind kind_;
};

}  // namespace mgmt_platform
