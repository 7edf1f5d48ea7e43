#include "tools/mgmtctl/store_report.h"

#include <iostream>
#include <utility>

#include <unistd.h>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

using namespace std::chrono_literals;

constexpr auto BEFORE_THE_FIRST = 1s;
constexpr auto BETWEEN = 250ms;
constexpr const char* CLEAR_LINE = "\r\x1b[K";

}  // namespace

CComPtr<IMgmtStore> OpenStore(const std::string& attempt) {
    ForgetReason();
    CComPtr<IMgmtStore> store;
    Check(store.CoCreateInstance(CLSID_MgmtStore), attempt);
    return store;
}

StoreReport::StoreReport(std::string done_what, std::string unit,
                         std::function<void(const std::string& sentence)> finding)
    : done_what_(std::move(done_what)),
      unit_(std::move(unit)),
      finding_(std::move(finding)),
      is_terminal_(isatty(STDERR_FILENO) == 1),
      next_(std::chrono::steady_clock::now() + BEFORE_THE_FIRST) {}

StoreReport::~StoreReport() {
    End();
}

void StoreReport::End() {
    if (std::exchange(is_shown_, false)) std::cerr << CLEAR_LINE << std::flush;
}

HRESULT StoreReport::QueryInterface(REFIID riid, void** ppvObject) {
    if (ppvObject == nullptr) return E_POINTER;
    *ppvObject = nullptr;
    if (riid != IID_IUnknown && riid != __uuidof(IMgmtStoreReport)) return E_NOINTERFACE;
    *ppvObject = static_cast<IMgmtStoreReport*>(this);
    return S_OK;
}

HRESULT StoreReport::Progress(ULONGLONG done, ULONGLONG total) {
    const auto now = std::chrono::steady_clock::now();
    if (!is_terminal_ || now < next_) return S_OK;
    next_ = now + BETWEEN;
    is_shown_ = true;
    std::cerr << CLEAR_LINE << done_what_ << ' ' << Grouped(done) << " of " << Grouped(total) << ' ' << unit_
              << std::flush;
    return S_OK;
}

HRESULT StoreReport::Finding(LPCWSTR sentence) {
    End();
    if (finding_) finding_(Utf8(sentence));
    return S_OK;
}

}  // namespace mgmtctl
