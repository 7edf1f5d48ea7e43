// CMgmtObject is one instance of a management class, told by its class name and the value of its key
// INSTANCE_ID, or by a whole object path.
//
//   CMgmtObject policy(L"RetentionPolicy", L"default", nullptr);
//   if (policy.Get()) policy.SetPropertyValue(L"KeepDays", 30L);
//   policy.Put(false);
//
// Every object uses the connection of the library's default scope, as it was when the object was made, or the
// one of SetScope. The thread that calls Get, Put or DeleteInstance must have initialised COM.
//
// Nothing is locked: a caller serialises all use of an object and its copies, which share one bag of
// properties. Objects made apart may be used on different threads, also when they share a connection.
//
// A service that fails or refuses makes the operation return false. What is thrown: CManagementException
// MGMT_ERR_SHARED_DATA when the scope cannot allocate its record, the wrappers' _com_error and CAtlException,
// and std::bad_alloc. After any of them the object can be used as before.
#pragma once

#include <optional>
#include <string>

#include <atlbase.h>
#include <comutil.h>
#include <wbemidl.h>

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtObjectBase.h"
#include "utility/management/util_MgmtScope.h"

class MGMT_API CMgmtObject : public CMgmtObjectBase {
 public:
    CMgmtObject();

    // The class name (the library calls it the category id), the value of INSTANCE_ID, and a third name that
    // is kept with the object and never sent. Each may be null and is then empty. Nothing is asked of the
    // service.
    CMgmtObject(const wchar_t* categoryId, const wchar_t* instanceId, const wchar_t* virtualServerName);

    // An object that Get and Put find under `objectPath`, as it is. DeleteInstance does not use the path.
    CMgmtObject(const wchar_t* objectPath);

    // The instance that a reference value (VT_BSTR) names, loaded at once. The text in front of the first
    // full stop becomes the category id, the first quoted text behind it the instance id, the next one the
    // virtual server name; only the first 255 units are looked at, but the instance is loaded by the whole
    // text. Any other value, and a text without those parts, leaves the object empty and asks nothing of the
    // service. An instance that cannot be loaded leaves the bag empty.
    CMgmtObject(const _variant_t* reference);

    // Shares the bag and the scope, copies the rest.
    CMgmtObject(const CMgmtObject& other);
    ~CMgmtObject() override;

    // Reads all properties into the bag: of the held object, when there is one (no request is made), else of
    // the instance, or of the class when only the category id is known. The object read is held from then
    // on. Properties that it does not have stay in the bag.
    bool Get();

    // Writes the bag to the instance and stores it; an instance that does not exist is created when
    // `createIfMissing` is true and is a failure otherwise. The held object is written through, unless
    // SetScope asked for the instance to be fetched anew. Stops at the first property that the service
    // refuses, with nothing stored. An object that holds nothing but an empty bag writes nothing and fails.
    bool Put(bool createIfMissing);

    // Deletes the instance of the category id and the instance id. The bag and the held object stay.
    bool DeleteInstance();

    // Always true.
    bool SetCategoryID(const std::wstring& categoryId);
    bool SetInstanceID(const std::wstring& instanceId);
    bool SetVirtualServerName(const std::wstring& virtualServerName);

    // Valid until the text is set again or the object is destroyed.
    const wchar_t* GetCategoryID();
    const wchar_t* GetInstanceId();

    // Shares the connection of `scope` from now on. With `refetchOnPut`, Put looks the instance up in that
    // scope by its path even when an object is held, until the next SetScope.
    void SetScope(CMgmtScope& scope, bool refetchOnPut);

    // The value of a property that refers to an instance: `className`.INSTANCE_ID="`instanceId`". Null counts
    // as empty. The text is not cut and nothing in it is escaped.
    static _bstr_t MakeReferenceObjectPath(const wchar_t* className, const wchar_t* instanceId);

 protected:
    // Loads the instance that `reference` (VT_BSTR) names. False, and nothing changed, when it is not found.
    bool PopulateObjectReferenceProperties(const _variant_t* reference);

 private:
    friend class CMgmtClass;

    // The public constructors with a scope that the caller has at hand.
    MGMT_LOCAL CMgmtObject(const CMgmtScope& scope, const wchar_t* categoryId, const wchar_t* instanceId);
    MGMT_LOCAL CMgmtObject(const CMgmtScope& scope, _bstr_t&& objectPath);

    MGMT_LOCAL bool _ParseReference(const wchar_t* reference);
    MGMT_LOCAL std::optional<_bstr_t> _ObjectPath() const;
    MGMT_LOCAL CComPtr<IWbemClassObject> _FetchForGet();
    MGMT_LOCAL CComPtr<IWbemClassObject> _FetchForPut(IWbemServices& services, bool createIfMissing) const;

    std::wstring m_CategoryID;
    std::wstring m_InstanceID;
    std::wstring m_VirtualServerName;
    CMgmtScope m_Scope;
    _bstr_t m_ObjectPath;
    bool m_UseObjectPath = false;
    bool m_RefetchOnPut = false;
};
