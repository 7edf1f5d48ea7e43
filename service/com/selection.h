// Selection: what a query leaves of the instances of a class. Only for service/com.
//
//   Result<Selection> selection = Selection::Make(connection, *query, keeps_keys);
//   selection->Apply(instances);  // those that match, with the properties asked for
//
// One thread at a time; copies are independent.
#pragma once

#include <utility>
#include <vector>

#include "service/com/connection.h"
#include "service/language/wql_condition.h"
#include "service/language/wql_query.h"
#include "service/model/instance.h"
#include "service/model/status.h"

namespace service {

class Selection {
 public:
    // Binds the query to the classes of the connection's namespace. With `keeps_keys` the key properties come
    // along whether the query lists them or not.
    static Result<Selection> Make(const Connection& connection, const WqlQuery& query, bool keeps_keys);

    // The class behind FROM.
    const ClassPtr& Class() const noexcept { return condition_.Class(); }

    // Removes the instances that do not match, and from the others what was not asked for. One that cannot be
    // read is removed, too, and the first such fault is returned.
    Status Apply(std::vector<Instance>& instances);

 private:
    Selection(WqlCondition condition, bool keeps_keys)
        : condition_(std::move(condition)), keeps_keys_(keeps_keys) {}

    ClassPtr Narrowed(const ClassPtr& definition);

    WqlCondition condition_;
    bool keeps_keys_;
    std::vector<std::string> properties_;                  // empty for all
    std::vector<std::pair<ClassPtr, ClassPtr>> narrowed_;  // classes met, and what the query leaves of them
};

}  // namespace service
