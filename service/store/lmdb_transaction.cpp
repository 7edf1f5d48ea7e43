// The transactions of an LmdbEnvironment.
#include <utility>

#include "service/store/lmdb_environment.h"
#include "service/store/redo_operations.h"

namespace service {
namespace {

// The innermost of the transactions that this thread runs.
thread_local const ThreadInside* t_inside = nullptr;

}  // namespace

void ThreadInside::Enter(const LmdbEnvironment& environment, bool is_writer) noexcept {
    environment_ = &environment;
    is_writer_ = is_writer;
    outer_ = std::exchange(t_inside, this);
}

void ThreadInside::Leave() noexcept {
    if (std::exchange(environment_, nullptr)) t_inside = outer_;
}

bool ThreadInside::IsWithin(const LmdbEnvironment& environment) noexcept {
    for (const ThreadInside* each = t_inside; each; each = each->outer_) {
        if (each->environment_ == &environment) return true;
    }
    return false;
}

bool ThreadInside::IsWriting(const LmdbEnvironment& environment) noexcept {
    for (const ThreadInside* each = t_inside; each; each = each->outer_) {
        if (each->environment_ == &environment && each->is_writer_) return true;
    }
    return false;
}

// While the map is looked at, another process may grow it once more. A thread that is inside already cannot
// have it resized.
Status ReadTransaction::Begin() {
    int code = environment_.BeginRead(txn_);
    while (code == MDB_MAP_RESIZED && !ThreadInside::IsWithin(environment_)) {
        code = environment_.Resize(0);
        if (code == 0) code = environment_.BeginRead(txn_);
    }
    if (code != 0) {
        return environment_.StatusOf(code, "the store " + environment_.directory() + " cannot be read");
    }
    inside_.Enter(environment_, false);
    return {};
}

// A thread that writes already would wait for itself, and every other writer for it.
Status WriteTransaction::Begin() {
    if (ThreadInside::IsWriting(environment_)) {
        return {WBEM_E_UNEXPECTED, "the store " + environment_.directory() +
                                       " is being written to by this very thread: what is called within an "
                                       "import may not write"};
    }
    int code = environment_.BeginWrite(txn_);
    while (code == MDB_MAP_RESIZED && !ThreadInside::IsWithin(environment_)) {
        code = environment_.Resize(0);
        if (code == 0) code = environment_.BeginWrite(txn_);
    }
    if (code != 0) {
        return environment_.StatusOf(code, "the store " + environment_.directory() + " cannot be written to");
    }
    inside_.Enter(environment_, true);
    return CheckSeal();
}

int WriteTransaction::Put(MDB_dbi table, MDB_val key, MDB_val value, unsigned flags) {
    const int code = mdb_put(txn_, table, &key, &value, flags);
    if (code == 0) Note(kRedoPut, table, key, value);
    return code;
}

int WriteTransaction::Delete(MDB_dbi table, MDB_val key) {
    const int code = mdb_del(txn_, table, &key, nullptr);
    if (code == 0) Note(kRedoDelete, table, key, {0, nullptr});
    return code;
}

void WriteTransaction::Note(uint8_t operation, MDB_dbi table, const MDB_val& key, const MDB_val& value) {
    if (fits_redo_) fits_redo_ = AppendOperation(environment_.tables_, operation, table, key, value, redo_);
    if (!fits_redo_) redo_.clear();
}

// A commit that does not fit the slots needs LMDB's second flush, which the environment leaves out. Its slot
// is emptied all the same: it may hold what a killed process was about to commit under this number.
int WriteTransaction::Commit() {
    if (fits_redo_ && redo_.empty()) return 0;
    const uint64_t number = mdb_txn_id(txn_);
    bool is_redoable = false;
    int code = 0;
    {
        const FileSeal::Writing writing(environment_.seal_, number);
        const bool is_written = environment_.redo_.Write(number, redo_);
        is_redoable = is_written && fits_redo_;
        try {
            code = mdb_txn_commit(txn_);
            txn_ = nullptr;
        } catch (const LmdbAssertion&) {
            if (is_written) environment_.redo_.Write(number, {});
            throw;
        }
        if (code != 0 && is_written) environment_.ForgetRedo(number);
    }
    if (code == 0 && !is_redoable) code = mdb_env_sync(environment_.env_, 1);
    environment_.LeaveTransaction();
    inside_.Leave();
    return code;
}

Status WriteTransaction::Check() {
    SERVICE_RETURN_IF_ERROR(environment_.CheckInPlace());
    return CheckSeal();
}

Status WriteTransaction::CheckSeal() {
    return environment_.seal_.IsViolatedBefore(mdb_txn_id(txn_)) ? environment_.LookThrough() : Status();
}

WriteTransaction::~WriteTransaction() {
    if (!txn_) return;
    mdb_txn_abort(txn_);
    environment_.LeaveTransaction();
}

}  // namespace service
