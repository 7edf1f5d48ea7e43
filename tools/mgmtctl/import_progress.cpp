#include "tools/mgmtctl/import_progress.h"

#include <chrono>
#include <iostream>

#include <unistd.h>

#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

using namespace std::chrono_literals;

constexpr auto BEFORE_THE_FIRST = 1s;
constexpr auto BETWEEN = 250ms;
constexpr const char* CLEAR_LINE = "\r\x1b[K";

}  // namespace

std::string ProgressText(bool is_check, std::uint64_t done, std::uint64_t total) {
    if (total == 0) return "reading the files ...";
    if (done == total && !is_check) return "storing " + Grouped(total) + " declarations ...";
    return (is_check ? "checked " : "imported ") + Grouped(done) + " of " + Grouped(total) + " declarations";
}

ImportProgress::ImportProgress(bool is_check) : is_check_(is_check) {
    if (isatty(STDERR_FILENO) != 1) return;
    thread_ = std::jthread([this](const std::stop_token& stop) { Show(stop); });
}

ImportProgress::~ImportProgress() = default;

HRESULT ImportProgress::QueryInterface(REFIID riid, void** ppvObject) {
    if (ppvObject == nullptr) return E_POINTER;
    *ppvObject = nullptr;
    if (riid != IID_IUnknown && riid != __uuidof(IMofProgress)) return E_NOINTERFACE;
    *ppvObject = static_cast<IMofProgress*>(this);
    return S_OK;
}

HRESULT ImportProgress::Progress(ULONGLONG done, ULONGLONG total) {
    done_ = done;
    total_ = total;
    return S_OK;
}

HRESULT ImportProgress::Warning(LPCWSTR sentence) {
    const std::lock_guard lock(mutex_);
    std::cerr << (thread_.joinable() ? CLEAR_LINE : "") << "warning: " << Printable(Utf8(sentence)) << '\n';
    return S_OK;
}

void ImportProgress::Show(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    const auto is_stopped_within = [&](std::chrono::milliseconds time) {
        stopped_.wait_for(lock, stop, time, [] { return false; });
        return stop.stop_requested();
    };
    if (is_stopped_within(BEFORE_THE_FIRST)) return;
    do {
        std::cerr << CLEAR_LINE + ProgressText(is_check_, done_, total_) << std::flush;
    } while (!is_stopped_within(BETWEEN));
    std::cerr << CLEAR_LINE << std::flush;
}

}  // namespace mgmtctl
