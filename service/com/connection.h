// Connection: the namespace that a caller's objects belong to. Only for service/com.
#pragma once

#include <memory>
#include <string>

#include "service/store/repository.h"

namespace service {

struct Connection {
    std::shared_ptr<Repository> repository;
    Namespace space;
    std::string server;  // this machine's name, as __SERVER gives it
};
using ConnectionPtr = std::shared_ptr<const Connection>;

}  // namespace service
