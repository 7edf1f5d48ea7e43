// BusErrorNotice: says why a process ends when somebody has cut a store's file short under it. Only for
// service/store.
//
//   BusErrorNotice::Add(directory);   // when the store is opened
//
// The files of a store are mapped; where one ends earlier than it did, the system sends SIGBUS to whoever
// reads behind its end. There is no going on from that, but it must not look like a fault of the program: the
// handler writes one sentence with the file's name and a way out to the standard error, and then lets
// happen what would have happened without it: the handler that was there before is called, or the process
// ends by the signal. Any other SIGBUS is passed on without a word.
//
// A handler that the program installs later takes this one's place, until a store is opened the next time.
// Any thread.
#pragma once

#include <string>

namespace service {

class BusErrorNotice {
 public:
    // Adds the files in `directory`, of which there can be some hundred; what comes after is not told about.
    static void Add(const std::string& directory) noexcept;
};

}  // namespace service
