// How a command fails: what was tried, why it failed, and what to do about it.
//
//   if (!object.Get()) throw OperationFailure("cannot read " + path, TakeReason());
//
// main prints a failure and turns it into the exit code. TakeReason is about the calling thread.
#pragma once

#include <stdexcept>
#include <string>

#include <winerror.h>
#include <wtypes.h>

namespace mgmtctl {

// The command line makes no sense: exit code 2.
class UsageFailure : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// Why the service refused something.
struct Reason {
    HRESULT code = S_OK;
    std::string sentence;
};

// Takes the thread's error object, which says why the last call failed. `code` is that call's result where
// the caller has one; an error object that tells its own code is asked first.
Reason TakeReason(HRESULT code = S_OK);

// Clears the thread's error object, so that a reason taken later is not an older one.
void ForgetReason();

// The operation did not succeed: exit code 1.
class OperationFailure : public std::runtime_error {
 public:
    // `advice` may be empty: what is generally to be done about the reason's code is added then.
    OperationFailure(const std::string& attempt, Reason reason, std::string advice = {});
    // A failure that the tool itself found.
    explicit OperationFailure(const std::string& sentence, std::string advice = {});

    HRESULT code() const { return reason_.code; }
    const std::string& advice() const { return advice_; }

 private:
    Reason reason_;
    std::string advice_;
};

// Throws OperationFailure unless the call succeeded.
void Check(HRESULT result, const std::string& attempt);

}  // namespace mgmtctl
