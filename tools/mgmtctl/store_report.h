// The store behind the service, and what it reports while it is looked after: how far it has come is one line
// on a terminal's standard error, written over a few times a second; what it finds goes where it is told.
//
//   const CComPtr<IMgmtStore> store = OpenStore("the store cannot be checked");
//   StoreReport report("checked", "records", [](const std::string& sentence) { ... });
//   store->Check(&report, &counts);
//
// The calling thread must have initialised COM. Lives longer than the calls it is passed to: references do
// not count. One thread.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <atlbase.h>
#include <mgmtstore.h>

namespace mgmtctl {

// Throws OperationFailure.
CComPtr<IMgmtStore> OpenStore(const std::string& attempt);

class StoreReport final : public IMgmtStoreReport {
 public:
    // "checked 1,000 of 2,000 records"; `finding` may be empty.
    StoreReport(std::string done_what, std::string unit,
                std::function<void(const std::string& sentence)> finding);
    ~StoreReport();
    StoreReport(const StoreReport&) = delete;
    StoreReport& operator=(const StoreReport&) = delete;

    // Clears the line.
    void End();

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE Progress(ULONGLONG done, ULONGLONG total) override;
    HRESULT STDMETHODCALLTYPE Finding(LPCWSTR sentence) override;

 private:
    const std::string done_what_;
    const std::string unit_;
    const std::function<void(const std::string&)> finding_;
    const bool is_terminal_;
    bool is_shown_ = false;
    std::chrono::steady_clock::time_point next_;
};

}  // namespace mgmtctl
