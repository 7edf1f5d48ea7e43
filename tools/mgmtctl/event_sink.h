// What the service tells of its events, printed as it comes.
//
//   const CComPtr<EventSink> sink(new EventSink(arguments));
//   services->ExecNotificationQueryAsync(language, query, 0, nullptr, sink);
//   ... wait for sink->ended() ...
//
// Prints on the service's threads, one event at a time: who reads slowly keeps the service waiting, which
// remembers what is to come. Any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <string>

#include <wbemidl.h>

#include "tools/mgmtctl/arguments.h"
#include "tools/mgmtctl/flag.h"

namespace mgmtctl {

class EventSink final : public IWbemObjectSink {
 public:
    // Prints as the arguments ask for, and as many events.
    explicit EventSink(const Arguments& arguments);
    EventSink(const EventSink&) = delete;
    EventSink& operator=(const EventSink&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE Indicate(long lObjectCount, IWbemClassObject** apObjArray) override;
    HRESULT STDMETHODCALLTYPE SetStatus(long lFlags, HRESULT hResult, BSTR strParam,
                                        IWbemClassObject* pObjParam) override;

    // Raised when there is nothing more to wait for: all events that were asked for are printed, printing
    // failed, or the service gave up.
    const Flag& ended() const noexcept { return ended_; }

    // Prints nothing from now on, and leaves what cannot be written: a reader that has stopped reading does
    // not hold the service up any longer.
    void End() noexcept { ended_.Raise(); }

    // Throws what ended it, unless it was the number of events or End.
    void ThrowFault();

 private:
    ~EventSink() = default;

    // Runs it unless it is all over; what is thrown ends it.
    void Run(const std::function<void()>& print) noexcept;
    void Print(IWbemClassObject& event);
    void PrintFault(HRESULT code, const std::string& sentence);

    const bool is_json_;
    const bool is_full_;
    std::atomic<ULONG> references_{0};
    Flag ended_;

    std::mutex mutex_;
    std::size_t left_;  // the events that are still to be printed
    std::exception_ptr fault_;
};

}  // namespace mgmtctl
