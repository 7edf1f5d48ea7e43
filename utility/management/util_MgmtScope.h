// CMgmtScope names one management namespace and holds the one connection to it.
//
//   CMgmtScope scope(L"\\\\.\\root\\Vantrel\\Halvenor");
//   scope.Connect();
//   if (!scope.IsConnected()) ...   // the thread's error object says why
//
// A scope is a small handle: copies share the settings and the connection, which is made once, on first need.
// Handles of one record may be copied, destroyed, connected and asked on any thread; path and credentials
// must not change while another thread connects. The thread that connects must have initialised COM.
//
// Every operation but copying, assigning and destroying first makes a record for a handle that has none, and
// throws CManagementException MGMT_ERR_SHARED_DATA when that fails. Strings that cannot be allocated raise
// the string wrapper's _com_error. Failures of the service are never thrown.
#pragma once

#include <atlbase.h>
#include <comutil.h>
#include <wbemidl.h>

#include "utility/common/mgmt_export.h"

class CSLock;

class MGMT_API CMgmtScope {
 public:
    // `path` is copied and not tested; null gives a null path. Nothing is connected.
    CMgmtScope(const wchar_t* path = L"\\\\.\\root\\Vantrel\\Halvenor");
    CMgmtScope(const CMgmtScope& other) noexcept;
    CMgmtScope& operator=(const CMgmtScope& other) noexcept;
    // The last handle of a connected record releases the connection.
    ~CMgmtScope();

    _bstr_t GetPath();

    // Takes effect with the next connection; a scope that is connected stays connected to its old path.
    void SetPath(_bstr_t& path);

    // Credentials for the next connection, copied; null takes them away. They are used only when both are
    // given (an empty text counts). "DOMAIN\user" names a domain; a name with "@" is passed whole; a name
    // with a domain is read up to 259 units.
    void SetUserName(const wchar_t* userName);
    void SetPassword(const wchar_t* password);

    // Connects unless connected. The outcome is told by IsConnected: true once the namespace is open and its
    // security settings are applied, from then on for the life of the record.
    void Connect();
    bool IsConnected();

    // The library's default scope, which objects copy at construction. A handle taken from it is independent
    // of later replacements. Any thread may call these at any time.
    static CMgmtScope GetDefaultMgmtScope();
    // The default shares the record of `scope` from now on.
    static void SetDefaultMgmtScope(CMgmtScope& scope);

 private:
    friend class CMgmtObject;
    friend class CMgmtClass;
    friend class CMgmtEventWatcher;

    struct SharedData;

    MGMT_LOCAL void _AddRef() noexcept;
    MGMT_LOCAL void _Free() noexcept;
    MGMT_LOCAL SharedData& _Ensure(int line);
    MGMT_LOCAL void _ConnectLocked(SharedData& data);

    // The connected namespace, or null. No reference is added.
    MGMT_LOCAL IWbemServices* _GetWMISerives();

    // Connects if needed and returns the namespace with a reference of its own, or null. A namespace that
    // was opened but whose security settings were refused is returned too.
    MGMT_LOCAL CComPtr<IWbemServices> _TakeServices();

    SharedData* m_SharedData;

    MGMT_LOCAL static CMgmtScope m_DefaultMgmtScope;
    MGMT_LOCAL static CSLock m_DefaultScopeLock;
};
