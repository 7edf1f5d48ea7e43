// The store in one directory of this machine, behind the interface.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>

#include "service/store/absent_store.h"
#include "service/store/fork.h"
#include "service/store/lmdb_environment.h"
#include "service/store/lmdb_records.h"
#include "service/store/store.h"
#include "service/store/store_files.h"

namespace service {
namespace {

// How long somebody waits for a change of a store that is not there before looking again.
constexpr std::chrono::milliseconds kWhileAbsent{100};

class LmdbStore final : public Store {
 public:
    LmdbStore(std::string directory, const StoreOptions& options)
        : directory_(std::move(directory)), options_(options) {}

    // What is there must be a store.
    Status Open() {
        if (directory_.empty()) return MakeDirectory(directory_);
        LmdbEnvironment* environment = nullptr;
        return Existing(environment);
    }

    Status Read(FunctionRef<Status(StoreReader&)> read) override {
        LmdbEnvironment* environment = nullptr;
        SERVICE_RETURN_IF_ERROR(Existing(environment));
        if (!environment) {
            AbsentStore nothing;
            return read(nothing);
        }
        try {
            SERVICE_RETURN_IF_ERROR(environment->CheckInPlaceNowAndThen());
            ReadTransaction txn(*environment);
            SERVICE_RETURN_IF_ERROR(txn.Begin());
            LmdbRecords reader(*environment, txn.get(), nullptr);
            return read(reader);
        } catch (const LmdbAssertion& assertion) {
            return environment->StatusOf(assertion);
        }
    }

    Status Write(FunctionRef<Status(StoreWriter&)> write) override {
        LmdbEnvironment* environment = nullptr;
        SERVICE_RETURN_IF_ERROR(Environment(environment));
        for (bool is_done = false; !is_done;) {
            size_t full_bytes = 0;
            try {
                SERVICE_RETURN_IF_ERROR(TryWrite(*environment, write, is_done, full_bytes));
            } catch (const LmdbAssertion& assertion) {
                return environment->StatusOf(assertion);
            }
            if (!is_done) SERVICE_RETURN_IF_ERROR(environment->Grow(full_bytes));
        }
        return {};
    }

    Status FindFaults(FunctionRef<bool(const std::string&)> found) override {
        LmdbEnvironment* environment = nullptr;
        SERVICE_RETURN_IF_ERROR(Existing(environment));
        return environment ? environment->FindFaults(found) : Status();
    }

    Status Backup(const std::string& path) override {
        LmdbEnvironment* environment = nullptr;
        SERVICE_RETURN_IF_ERROR(Existing(environment));
        if (!environment) return {WBEM_E_NOT_FOUND, "there is no store " + directory_ + " to be copied"};
        return environment->CopyTo(path);
    }

    Status Figures(StoreFigures& figures) override {
        LmdbEnvironment* environment = nullptr;
        SERVICE_RETURN_IF_ERROR(Existing(environment));
        figures = {};
        figures.map_bytes = options_.map_bytes;
        figures.max_readers = options_.max_readers;
        figures.max_log_bytes = options_.change_log_bytes;
        return environment ? environment->Figures(figures) : Status();
    }

    bool IsThere() override {
        LmdbEnvironment* environment = nullptr;
        return !Existing(environment).ok() || environment;
    }

    uint32_t ChangeSignal() override {
        LmdbEnvironment* const environment = Usable();
        return environment ? environment->signal().Read() : 0;
    }

    void WaitForChange(uint32_t seen, std::chrono::nanoseconds timeout) override {
        if (LmdbEnvironment* const environment = Usable()) return environment->signal().Wait(seen, timeout);
        std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(timeout, kWhileAbsent));
    }

    void RaiseChangeSignal() override {
        if (LmdbEnvironment* const environment = Usable()) environment->signal().Raise();
    }

    const void* Identity() override { return Usable(); }

    const std::string& Location() const noexcept override { return directory_; }

 private:
    // One transaction; `is_done` stays false when the map of `full_bytes` was too small for it.
    Status TryWrite(LmdbEnvironment& environment, FunctionRef<Status(StoreWriter&)> write, bool& is_done,
                    size_t& full_bytes) {
        WriteTransaction txn(environment);
        SERVICE_RETURN_IF_ERROR(txn.Begin());
        full_bytes = environment.MapBytes();
        LmdbRecords writer(environment, txn.get(), &txn);
        Status fault = write(writer);
        if (writer.NeedsRoom()) return {};
        if (!fault.ok()) return fault;
        SERVICE_RETURN_IF_ERROR(txn.Check());
        const int code = txn.Commit();
        if (code == MDB_MAP_FULL) return {};
        if (code != 0) return environment.StatusOf(code, "the store " + directory_ + " could not be written");
        if (writer.HasLogged()) environment.signal().Raise();
        is_done = true;
        return {};
    }

    // Null where nobody has made the store yet.
    Status Existing(LmdbEnvironment*& environment) {
        environment = current_.load(std::memory_order_acquire);
        if (environment && !environment->IsAbandoned()) return {};
        environment = nullptr;
        return HasStore(directory_) ? Environment(environment) : Status();
    }

    LmdbEnvironment* Usable() {
        LmdbEnvironment* environment = nullptr;
        return Existing(environment).ok() ? environment : nullptr;
    }

    Status Environment(LmdbEnvironment*& environment) {
        environment = current_.load(std::memory_order_acquire);
        if (environment && !environment->IsAbandoned()) return {};

        // Threads that open it at once get one and the same.
        SERVICE_ASSIGN_OR_RETURN(std::shared_ptr<LmdbEnvironment> opened,
                                 LmdbEnvironment::Open(directory_, options_));
        const std::lock_guard lock(mutex_);
        environment = current_.load(std::memory_order_acquire);
        if (environment && !environment->IsAbandoned()) return {};
        environment = opened.get();
        environments_.push_back(std::move(opened));
        current_.store(environment, std::memory_order_release);
        return {};
    }

    const std::string directory_;
    const StoreOptions options_;
    std::atomic<LmdbEnvironment*> current_{nullptr};
    ForkSafeMutex mutex_;
    // The environment in use is the last; those before it were abandoned by forks.
    std::vector<std::shared_ptr<LmdbEnvironment>> environments_;
};

}  // namespace

Result<std::shared_ptr<Store>> OpenLmdbStore(const std::string& directory, const StoreOptions& options) {
    auto store = std::make_shared<LmdbStore>(directory, options);
    SERVICE_RETURN_IF_ERROR(store->Open());
    return std::shared_ptr<Store>(std::move(store));
}

}  // namespace service
