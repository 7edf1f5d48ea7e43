#include "tools/mgmtctl/event_sink.h"

#include <cstdint>
#include <iostream>

#include <atlbase.h>

#include "tools/mgmtctl/event_text.h"
#include "tools/mgmtctl/event_time.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/output.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

std::string SentenceFor(HRESULT code, BSTR reason) {
    std::string sentence = Utf8(reason);
    if (!sentence.empty()) return sentence;
    return code == WBEM_E_QUEUE_OVERFLOW ? "events were lost" : "an event cannot be read";
}

}  // namespace

EventSink::EventSink(const Arguments& arguments)
    : is_json_(arguments.is_json),
      is_full_(arguments.listing.is_full),
      left_(arguments.event_count.value_or(SIZE_MAX)) {}

HRESULT EventSink::QueryInterface(REFIID riid, void** ppvObject) {
    if (ppvObject == nullptr) return E_POINTER;
    *ppvObject = nullptr;
    if (riid != IID_IUnknown && riid != __uuidof(IWbemObjectSink)) return E_NOINTERFACE;
    AddRef();
    *ppvObject = static_cast<IWbemObjectSink*>(this);
    return S_OK;
}

ULONG EventSink::AddRef() {
    return ++references_;
}

ULONG EventSink::Release() {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
}

HRESULT EventSink::Indicate(long lObjectCount, IWbemClassObject** apObjArray) {
    for (long i = 0; i < lObjectCount; ++i)
        Run([&] { Print(*apObjArray[i]); });
    return WBEM_S_NO_ERROR;
}

HRESULT EventSink::SetStatus(long, HRESULT hResult, BSTR strParam, IWbemClassObject*) {
    if (FAILED(hResult)) Run([&] { PrintFault(hResult, SentenceFor(hResult, strParam)); });
    return WBEM_S_NO_ERROR;
}

void EventSink::ThrowFault() {
    const std::lock_guard lock(mutex_);
    if (fault_ != nullptr) std::rethrow_exception(fault_);
}

void EventSink::Run(const std::function<void()>& print) noexcept {
    const std::lock_guard lock(mutex_);
    if (ended_.IsRaised()) return;
    try {
        print();
    } catch (...) {
        fault_ = std::current_exception();
        ended_.Raise();
    }
}

void EventSink::Print(IWbemClassObject& object) {
    const Event event = ReadEvent(object);
    WriteOutput(is_json_ ? EventJson(event).dump() + "\n"
                         : EventText(event, is_full_ ? Length::WHOLE : Length::SHORT),
                ended_);
    if (--left_ == 0) ended_.Raise();
}

// The watch goes on behind what was lost; only a subscription that is no more ends it.
void EventSink::PrintFault(HRESULT code, const std::string& sentence) {
    if (code == WBEM_E_CALL_CANCELLED) throw OperationFailure("the service ended the watch: " + sentence);
    std::cerr << "mgmtctl: " + Printable(sentence) + "\n";
    if (!is_json_) return;
    const OrderedJson json = {{"time", IsoTime(TicksNow())},
                              {"event", code == WBEM_E_QUEUE_OVERFLOW ? "lost" : "failed"},
                              {"reason", sentence}};
    WriteOutput(json.dump() + "\n", ended_);
}

}  // namespace mgmtctl
