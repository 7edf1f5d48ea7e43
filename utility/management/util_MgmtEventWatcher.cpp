#include "utility/management/util_MgmtEventWatcher.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>
#include <utility>

#include <atlbase.h>
#include <comdef.h>
#include <wbemidl.h>
#include <windows.h>

#include "utility/common/baselib.h"
#include "utility/common/diaglib.h"
#include "utility/management/util_MgmtModule.h"

namespace {

// By event type.
constexpr const wchar_t* EVENT_CLASSES[] = {L"__InstanceModificationEvent", L"__InstanceCreationEvent",
                                            L"__InstanceDeletionEvent"};

constexpr std::size_t QUERY_LENGTH = 255;
constexpr std::size_t REASON_CAPACITY = 1024;

struct HandleCloser {
    void operator()(void* handle) const noexcept { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

const wchar_t* TextOrEmpty(const wchar_t* text) noexcept {
    return text != nullptr ? text : L"";
}

template <typename... Arguments>
void Log(int level, int line, const wchar_t* format, Arguments... arguments) noexcept {
    DBG::DebugLogEx(LibraryModule(), level, L"" __FILE__, line, format, arguments...);
}

// Other processes of the product read their settings again when they see the event; one of them has made it.
void SignalReload() noexcept {
    Log(DBG::LEVEL_NOTICE, __LINE__, L"Set policy reload setting event");
    const Handle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, L"_KESTO_POLICY_RELOAD_SETTING_EVENT_"));
    if (event == nullptr) {
        Log(DBG::LEVEL_FAILURE, __LINE__, L"Set reload event fail. error = %d",
            static_cast<int>(GetLastError()));
        return;
    }
    SetEvent(event.get());
}

// Allocates nothing. A text that is too long is cut; then, and where its encoding is broken, a question mark
// stands for each byte that is not ASCII.
void Widen(const char* text, wchar_t (&wide)[REASON_CAPACITY]) noexcept {
    if (MultiByteToWideChar(CP_ACP, 0, text, -1, wide, REASON_CAPACITY) != 0) return;
    wchar_t* end = wide;
    for (; text != nullptr && *text != '\0' && end != std::end(wide) - 1; ++text)
        *end++ = static_cast<unsigned char>(*text) < 0x80 ? static_cast<wchar_t>(*text) : L'?';
    *end = L'\0';
}

// Logs the exception that is being handled.
void LogException() noexcept {
    try {
        throw;
    } catch (const std::exception& failure) {
        wchar_t reason[REASON_CAPACITY];
        Widen(failure.what(), reason);
        Log(DBG::LEVEL_FAILURE, __LINE__, L"WMI EventSink->Indicate() exception. %s", reason);
    } catch (const OS::CException& failure) {
        // Not through the virtual table: what a derived class returns there might be thrown, too.
        Log(DBG::LEVEL_FAILURE, __LINE__, L"WMI EventSink->Indicate() exception. error = %d",
            failure.OS::CException::GetErrorCode());
    } catch (const _com_error& failure) {
        Log(DBG::LEVEL_FAILURE, __LINE__, L"WMI EventSink->Indicate() exception. hr=0x%x",
            static_cast<unsigned int>(failure.Error()));
    } catch (const CAtlException& failure) {
        Log(DBG::LEVEL_FAILURE, __LINE__, L"WMI EventSink->Indicate() exception. hr=0x%x",
            static_cast<unsigned int>(failure.m_hr));
    } catch (...) {
        Log(DBG::LEVEL_FAILURE, __LINE__, L"WMI EventSink->Indicate() exception. unknown");
    }
}

}  // namespace

// What the service calls for one subscription: it passes the events on to the watcher that subscribed, and
// logs how the subscription fares.
//
//   const CComPtr<IWbemObjectSink> sink(new CWMIEventSink(watcher));
//
// Made with a count of 0; deletes itself with the last reference. The service may make any call on any
// thread, and several at once. The watcher is not owned: it must live until the service has ceased to call
// Indicate.
class CWMIEventSink final : public IWbemObjectSink {
 public:
    explicit CWMIEventSink(CMgmtEventWatcher* watcher) noexcept : m_Watcher(watcher) {}
    CWMIEventSink(const CWMIEventSink&) = delete;
    CWMIEventSink& operator=(const CWMIEventSink&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // Both return WBEM_S_NO_ERROR whatever happens, and neither throws.
    HRESULT STDMETHODCALLTYPE Indicate(long lObjectCount, IWbemClassObject** apObjArray) override;
    HRESULT STDMETHODCALLTYPE SetStatus(long lFlags, HRESULT hResult, BSTR strParam,
                                        IWbemClassObject* pObjParam) override;

 private:
    ~CWMIEventSink() = default;

    void _Dispatch(IWbemClassObject& event) noexcept;

    LONG m_RefCount = 0;
    CMgmtEventWatcher* m_Watcher;
};

HRESULT CWMIEventSink::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IWbemObjectSink) return E_NOINTERFACE;
    AddRef();
    *ppv = this;
    return S_OK;
}

ULONG CWMIEventSink::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_RefCount));
}

ULONG CWMIEventSink::Release() {
    const LONG left = InterlockedDecrement(&m_RefCount);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
}

HRESULT CWMIEventSink::Indicate(long lObjectCount, IWbemClassObject** apObjArray) {
    for (long i = 0; i < lObjectCount; ++i)
        _Dispatch(*apObjArray[i]);
    return WBEM_S_NO_ERROR;
}

void CWMIEventSink::_Dispatch(IWbemClassObject& event) noexcept {
    try {
        // An event of another kind has no such property; it is passed on with an empty one.
        _variant_t targetInstance;
        event.Get(L"TargetInstance", 0, &targetInstance, nullptr, nullptr);
        CMgmtEventArrivedArgs args(targetInstance);
        m_Watcher->ProcessEvent(args);
    } catch (...) {
        LogException();
    }
}

HRESULT CWMIEventSink::SetStatus(long /*lFlags*/, HRESULT hResult, BSTR /*strParam*/,
                                 IWbemClassObject* /*pObjParam*/) {
    if (SUCCEEDED(hResult)) {
        Log(DBG::LEVEL_NOTICE, __LINE__, L"WMI EventSink->SetStatus() ok");
    } else if (hResult == WBEM_E_CALL_CANCELLED) {
        Log(DBG::LEVEL_NOTICE, __LINE__, L"WMI EventSink->SetStatus(WBEM_E_CALL_CANCELLED).");
    } else {
        Log(DBG::LEVEL_FAILURE, __LINE__, L"WMI EventSink->SetStatus(0x%x).",
            static_cast<unsigned int>(hResult));
        if (hResult == WBEM_E_QUEUE_OVERFLOW) SignalReload();
    }
    return WBEM_S_NO_ERROR;
}

CMgmtEventWatcher::CMgmtEventWatcher(int eventType, const wchar_t* className, const wchar_t* instanceID,
                                     int interval)
    : m_EventType(eventType),
      m_PollingInterval(interval),
      m_ClassName(TextOrEmpty(className)),
      m_InstanceID(TextOrEmpty(instanceID)),
      m_Scope(CMgmtScope::GetDefaultMgmtScope()) {}

CMgmtEventWatcher::CMgmtEventWatcher(const wchar_t* query)
    : m_EventType(-1),
      m_PollingInterval(0),
      m_Query(TextOrEmpty(query)),
      m_Scope(CMgmtScope::GetDefaultMgmtScope()) {}

CMgmtEventWatcher::CMgmtEventWatcher(const CMgmtEventWatcher& other) = default;

CMgmtEventWatcher& CMgmtEventWatcher::operator=(const CMgmtEventWatcher& other) {
    CMgmtEventWatcher copy(other);
    std::swap(m_EventType, copy.m_EventType);
    std::swap(m_PollingInterval, copy.m_PollingInterval);
    m_ClassName.swap(copy.m_ClassName);
    m_InstanceID.swap(copy.m_InstanceID);
    m_Query.swap(copy.m_Query);
    std::swap(m_SinkHolder, copy.m_SinkHolder);
    m_Handlers.swap(copy.m_Handlers);
    m_Scope = copy.m_Scope;
    // The handlers that were registered here are forgotten, not released.
    copy.m_Handlers.clear();
    return *this;
}

CMgmtEventWatcher::~CMgmtEventWatcher() {
    for (CMgmtEventArrivedHandler* const handler : m_Handlers)
        handler->Release();
}

void CMgmtEventWatcher::AddEventArrivedEventHandler(CMgmtEventArrivedHandler* handler) {
    if (handler == nullptr || std::ranges::find(m_Handlers, handler) != m_Handlers.end()) return;
    m_Handlers.push_back(handler);
}

bool CMgmtEventWatcher::Start() {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    if (services == nullptr) return false;
    const std::wstring text = _MakeQuery();
    if (text.empty()) return false;

    const CComBSTR language(L"WQL");
    const CComBSTR query(text.c_str());
    const CComPtr<CWMIEventSink> sink(new CWMIEventSink(this));
    m_SinkHolder = static_cast<IUnknown*>(sink);
    return services->ExecNotificationQueryAsync(language, query, WBEM_FLAG_SEND_STATUS, nullptr, sink) ==
           WBEM_S_NO_ERROR;
}

bool CMgmtEventWatcher::Stop() {
    const CComPtr<IWbemServices> services = m_Scope._TakeServices();
    if (services == nullptr) return false;
    if (m_SinkHolder.vt != VT_UNKNOWN || m_SinkHolder.punkVal == nullptr) return false;

    CComPtr<IWbemObjectSink> sink;
    m_SinkHolder.punkVal->QueryInterface(IID_PPV_ARGS(&sink));
    return sink != nullptr && services->CancelAsyncCall(sink) == WBEM_S_NO_ERROR;
}

void CMgmtEventWatcher::ProcessEvent(CMgmtEventArrivedArgs& args) {
    const std::size_t count = m_Handlers.size();
    for (std::size_t i = 0; i < count; ++i)
        m_Handlers[i]->OnEventArrived(args);
}

std::wstring CMgmtEventWatcher::_MakeQuery() const {
    if (m_ClassName.empty()) return m_Query;
    if (m_EventType < 0 || m_EventType >= static_cast<int>(std::size(EVENT_CLASSES))) return {};

    std::wstring query = L"SELECT * FROM ";
    query.append(EVENT_CLASSES[m_EventType]).append(L" WITHIN ").append(std::to_wstring(m_PollingInterval));
    query.append(L" WHERE TargetInstance ISA \"").append(m_ClassName).append(L"\"");
    if (!m_InstanceID.empty())
        query.append(L" AND TargetInstance.INSTANCE_ID=\"").append(m_InstanceID).append(L"\"");
    if (query.size() > QUERY_LENGTH) query.resize(QUERY_LENGTH);
    return query;
}
