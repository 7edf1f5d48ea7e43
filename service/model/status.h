// Status and Result: how the service's rooms report a fault.
//
//   Result<ObjectPath> path = ParseObjectPath(text);
//   if (!path.ok()) return path.status();
//   Use(*path);
//
// A fault is a value: a code (a WBEM_E_ status, chosen where the fault is found) and one sentence that names
// the thing at fault and, where there is one, the way out. The faces in service/com hand both to the caller.
// Values of these types belong to one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <wbemstatus.h>
#include <winerror.h>

namespace service {

class [[nodiscard]] Status {
 public:
    Status() noexcept = default;
    // `code` is a failing HRESULT; `reason` one sentence in UTF-8.
    Status(int32_t code, std::string reason) : failure_(new Failure{code, std::move(reason)}) {}

    bool ok() const noexcept { return failure_ == nullptr; }
    int32_t code() const noexcept { return failure_ ? failure_->code : 0; }
    const std::string& reason() const noexcept {
        static const std::string none;
        return failure_ ? failure_->reason : none;
    }

 private:
    struct Failure {
        int32_t code;
        std::string reason;
    };
    std::unique_ptr<const Failure> failure_;
};

// A value, or the status that says why there is none. `*result` requires ok().
template <typename T>
class [[nodiscard]] Result {
 public:
    Result(T value) : value_(std::move(value)) {}                   // NOLINT(google-explicit-constructor)
    Result(Status status) noexcept : status_(std::move(status)) {}  // NOLINT(google-explicit-constructor)
    Result(int32_t code, std::string reason) : status_(code, std::move(reason)) {}

    bool ok() const noexcept { return value_.has_value(); }
    Status status() && noexcept { return std::move(status_); }
    const Status& status() const& noexcept { return status_; }
    int32_t code() const noexcept { return status_.code(); }

    T& operator*() & noexcept { return *value_; }
    const T& operator*() const& noexcept { return *value_; }
    T&& operator*() && noexcept { return std::move(*value_); }
    T* operator->() noexcept { return &*value_; }
    const T* operator->() const noexcept { return &*value_; }

 private:
    std::optional<T> value_;
    Status status_;
};

}  // namespace service

// Leaves the function with the status of `expression` when it is a fault.
#define SERVICE_RETURN_IF_ERROR(expression)                                                      \
    do {                                                                                         \
        if (::service::Status status_of_expression = (expression); !status_of_expression.ok()) { \
            return status_of_expression;                                                         \
        }                                                                                        \
    } while (false)

// Declares `target` from the Result `expression`, or leaves the function with its status. `target` is a whole
// declaration, so it cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define SERVICE_ASSIGN_OR_RETURN(target, expression) \
    SERVICE_ASSIGN_OR_RETURN_(SERVICE_CONCAT_(result_at_line_, __LINE__), target, expression)
#define SERVICE_CONCAT_(a, b) SERVICE_CONCAT_AGAIN_(a, b)
#define SERVICE_CONCAT_AGAIN_(a, b) a##b
#define SERVICE_ASSIGN_OR_RETURN_(result, target, expression) \
    auto result = (expression);                               \
    if (!result.ok()) return std::move(result).status();      \
    target = std::move(*result)
// NOLINTEND(bugprone-macro-parentheses)
