// What a query says of what it selects, as far as a listing has to know.
//
//   const Selected selected = ReadSelect("SELECT A, B FROM Policy WHERE B > 1");
//   // selected.class_name is "Policy", selected.properties are "A" and "B"
//
// For queries that the service has taken: their syntax is not checked. Stateless.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mgmtctl {

struct Selected {
    std::vector<std::string> properties;  // empty for *
    std::string class_name;               // empty where it cannot be told
};

Selected ReadSelect(std::string_view query);

}  // namespace mgmtctl
