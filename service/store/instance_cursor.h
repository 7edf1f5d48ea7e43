// InstanceCursor: the instances of a class, and of those derived from it, as they were when it was opened.
//
//   Result<InstanceCursor> cursor = InstanceCursor::Open(repository, space, "Policy", Depth::kDeep);
//   while (!cursor->AtEnd())
//       if (Status fault = cursor->Read(100, instances); !fault.ok()) ...
//
// Between two reads it holds nothing of the store and keeps nobody from writing, see instance_scan.h, which
// also says when it cannot go on. It reads with the classes as they were when it was opened: classes that
// were changed or deleted since do not matter to it. One thread at a time; copies go on independently.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "service/model/instance.h"
#include "service/model/status.h"
#include "service/store/instance_scan.h"
#include "service/store/repository.h"

namespace service {

enum class Depth { kDeep, kShallow };

class InstanceCursor {
 public:
    // WBEM_E_INVALID_CLASS for a class that is not there. The class's own instances come first.
    static Result<InstanceCursor> Open(std::shared_ptr<const Repository> repository, const Namespace& space,
                                       std::string_view class_name, Depth depth);

    // Appends the instances that come next, about `count` of them, fewer when they are large, at least one
    // unless the end was reached. A damaged record is left out and is the fault that is returned, after the
    // instances before it were appended; the next read goes on behind it.
    Status Read(size_t count, std::vector<Instance>& instances);

    bool AtEnd() const noexcept { return scan_.AtEnd(); }

 private:
    InstanceCursor() = default;

    std::shared_ptr<const Repository> repository_;
    std::vector<ClassPtr> classes_;                // the one named, then those derived from it
    std::shared_ptr<const ClassSource> embedded_;  // null where no class has objects
    InstanceScan scan_;
};

}  // namespace service
