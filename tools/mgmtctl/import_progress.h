// Shows on a terminal how far an import has come, once it takes longer than a second: one line on the
// standard error that is written over a few times a second and is gone at the end.
//
//   ImportProgress progress(false);
//   source->SetProgress(&progress);
//
// Shows nothing where the standard error is no terminal. A thread of its own writes the line, because reading
// the files and the commit report nothing. Lives longer than what calls it: references do not count.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include <mofprogress.h>

namespace mgmtctl {

// `total` is 0 as long as the files are being read.
std::string ProgressText(bool is_check, std::uint64_t done, std::uint64_t total);

class ImportProgress final : public IMofProgress {
 public:
    explicit ImportProgress(bool is_check);
    // The line is gone afterwards.
    ~ImportProgress();
    ImportProgress(const ImportProgress&) = delete;
    ImportProgress& operator=(const ImportProgress&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE Progress(ULONGLONG done, ULONGLONG total) override;
    HRESULT STDMETHODCALLTYPE Warning(LPCWSTR sentence) override;

 private:
    void Show(const std::stop_token& stop);

    const bool is_check_;
    std::atomic<std::uint64_t> done_{0};
    std::atomic<std::uint64_t> total_{0};
    std::mutex mutex_;
    std::condition_variable_any stopped_;
    std::jthread thread_;
};

}  // namespace mgmtctl
