// Connection: the namespace that a caller's objects belong to. Only for service/com.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "service/store/repository.h"

namespace service {

struct Connection {
    std::shared_ptr<Repository> repository;
    Namespace space;
    std::string server;  // this machine's name, as __SERVER gives it
};
using ConnectionPtr = std::shared_ptr<const Connection>;

// `status` with a reason that names the namespace: the same class and key may stand in another.
inline Status In(const Connection& connection, Status status) {
    const std::string& path = connection.space.path;
    if (status.ok() || status.reason().find(path) != std::string::npos) return status;
    return {status.code(), status.reason() + " (namespace " + path + ")"};
}
template <typename T>
Result<T> In(const Connection& connection, Result<T> result) {
    if (result.ok()) return result;
    return In(connection, std::move(result).status());
}

}  // namespace service
