// ClassTable holds the class objects that this process has registered. For the files of this folder only.
//
//   DWORD cookie = 0;
//   ClassTable::OfProcess().Register(clsid, factory, &cookie);
//   if (auto registration = ClassTable::OfProcess().Find(clsid)) registration->Query(riid, out);
//   ClassTable::OfProcess().Revoke(cookie);
//
// Any thread, also several at once. The table's lock is never held while a class object is called: what
// leaves the table is a shared registration, and the class object lives as long as one is held.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include <unknwn.h>

namespace mgmt_platform {

// One registered class object, of which it holds a reference.
class ClassRegistration {
 public:
    ClassRegistration(REFCLSID clsid, IUnknown* class_object) noexcept
        : clsid_(clsid), class_object_(class_object) {
        class_object_->AddRef();
    }
    ~ClassRegistration() { class_object_->Release(); }

    ClassRegistration(const ClassRegistration&) = delete;
    ClassRegistration& operator=(const ClassRegistration&) = delete;

    bool IsOf(REFCLSID clsid) const noexcept { return clsid_ == clsid; }
    HRESULT Query(REFIID riid, void** out) const noexcept { return class_object_->QueryInterface(riid, out); }

 private:
    CLSID clsid_;
    IUnknown* class_object_;
};

class ClassTable {
 public:
    static ClassTable& OfProcess() noexcept;

    ClassTable() noexcept = default;
    ClassTable(const ClassTable&) = delete;
    ClassTable& operator=(const ClassTable&) = delete;

    // `*cookie` is never 0. E_OUTOFMEMORY.
    HRESULT Register(REFCLSID clsid, IUnknown* class_object, DWORD* cookie) noexcept;
    // False for a cookie that is not in the table.
    bool Revoke(DWORD cookie) noexcept;
    // The latest registration of the class; null where there is none.
    std::shared_ptr<const ClassRegistration> Find(REFCLSID clsid) noexcept;

 private:
    struct Entry {
        DWORD cookie;
        std::shared_ptr<const ClassRegistration> registration;
    };

    bool IsTaken(DWORD cookie) const noexcept;
    DWORD TakeCookie() noexcept;

    std::mutex mutex_;
    std::vector<Entry> entries_;
    DWORD last_cookie_ = 0;
};

}  // namespace mgmt_platform
