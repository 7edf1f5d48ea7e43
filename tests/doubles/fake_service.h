// A management service kept in memory, registered with the COM runtime in place of the real one.
//
//   doubles::FakeService service;                        // on a thread that has initialised COM
//   service.AddClass(L"Cls", {{L"INSTANCE_ID", CIM_STRING}, {L"KeepDays", CIM_UINT32}});
//   service.AddInstance(L"Cls", L"42", {{L"KeepDays", _variant_t(30L)}});
//   service.FailAt(3, WBEM_E_FAILED);                    // the third request from here on fails
//
// Every request made of it, of its connections and of its objects is counted and recorded. Requests may come
// on any thread. It must outlive everything that it handed out; LiveObjects tells what is left.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <atlbase.h>
#include <comutil.h>
#include <objbase.h>
#include <wbemidl.h>

namespace doubles {

// A property of a class or an instance. A value of VT_NULL is null.
struct Property {
    std::wstring name;
    CIMTYPE type = CIM_STRING;
    _variant_t value = Null();

    static _variant_t Null();
};

struct Assignment {
    std::wstring name;
    _variant_t value;
};

// What a class or an instance consists of.
struct Content {
    std::wstring className;
    bool isClass = false;
    std::vector<Property> properties;  // system properties included

    // Names are compared without regard to case. Null when there is none.
    Property* Find(const std::wstring& name);
};

// One answer of a scripted enumerator: the object, or a status without one.
struct EnumerationStep {
    HRESULT status = WBEM_S_NO_ERROR;
    Content object;
};

class FakeService {
 public:
    FakeService();
    ~FakeService();
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    void AddClass(const std::wstring& name, std::vector<Property> properties);
    void AddInstance(const std::wstring& className, const std::wstring& id,
                     const std::vector<Assignment>& values);

    // The stored instance's value, VT_EMPTY when there is no such instance or property.
    _variant_t Stored(const std::wstring& className, const std::wstring& id, const std::wstring& property);
    bool HasInstance(const std::wstring& className, const std::wstring& id);

    // An object of the content, as GetObject would hand it out.
    IWbemClassObject* MakeObject(const Content& content);

    // What the next enumerator answers, instead of the instances of its class; the list ends with
    // WBEM_S_FALSE.
    void ScriptEnumeration(std::vector<EnumerationStep> steps);

    // Who receives the events of the subscriptions that are running, in the order in which these began. Tests
    // call them as the service would.
    std::vector<CComPtr<IWbemObjectSink>> Sinks();

    // Request number `number` from now on (1 is the next) gives `result` and has no other effect.
    void FailAt(int number, HRESULT result);
    bool HasFailed() const { return m_HasFailed; }

    // The requests since the last call, as "GetObject Cls.INSTANCE_ID="42"" and the like; " with more" where
    // a connection was asked for with more than its path.
    std::vector<std::wstring> TakeRequests();
    // How the proxies of connections were asked to be secured, since the last call of Forget: the five
    // settings and the identity's flags, the principal, and "domain\\user:password", "(null)" where one is
    // null.
    std::vector<std::wstring> Blankets();
    // Drops the records of both.
    void Forget();
    long LiveObjects() const { return m_Live; }

    // What the steps of a connection give, and how long opening the namespace takes.
    std::atomic<HRESULT> locatorResult{S_OK};
    std::atomic<HRESULT> connectResult{S_OK};
    std::atomic<HRESULT> blanketResult{S_OK};
    std::atomic<std::chrono::milliseconds> connectTime{std::chrono::milliseconds(0)};

 private:
    friend class FakeFactory;
    friend class FakeLocator;
    friend class FakeServices;
    friend class FakeClassObject;
    friend class FakeEnumerator;

    // Counts and records a request. The status that it is to fail with, or S_OK.
    HRESULT Enter(const std::wstring& request);

    std::mutex m_Mutex;
    std::map<std::wstring, Content> m_Contents;  // by relative path
    std::vector<EnumerationStep> m_Script;
    bool m_HasScript = false;
    std::vector<CComPtr<IWbemObjectSink>> m_Sinks;
    std::vector<std::wstring> m_Requests;
    std::vector<std::wstring> m_Blankets;
    int m_UntilFailure = 0;
    HRESULT m_Failure = S_OK;
    std::atomic<bool> m_HasFailed{false};
    std::atomic<long> m_Live{0};
    DWORD m_Cookie = 0;
};

// COM for the calling thread.
class ComThread {
 public:
    ComThread() { CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
    ~ComThread() { CoUninitialize(); }
    ComThread(const ComThread&) = delete;
    ComThread& operator=(const ComThread&) = delete;
};

}  // namespace doubles
