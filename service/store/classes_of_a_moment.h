// ClassesOfAMoment: where embedded objects find their classes when these must be as they were, whatever
// becomes of them. Only for service/store and service/notify.
//
//   auto classes = std::make_shared<const ClassesOfAMoment>(*reader.Classes(space));
//   Result<Instance> instance = DecodeInstance(definition, record, classes);
//
// Any thread.
#pragma once

#include <algorithm>
#include <string>
#include <utility>

#include "service/model/text.h"
#include "service/store/record_codec.h"
#include "service/store/schema_cache.h"

namespace service {

class ClassesOfAMoment final : public ClassSource {
 public:
    // All classes of a namespace, in the order of their folded names.
    explicit ClassesOfAMoment(SchemaCache::ClassList classes) noexcept : classes_(std::move(classes)) {}

    Result<ClassPtr> FindEmbeddedClass(std::string_view name) const override {
        const std::string folded = Fold(name);
        const auto found = std::lower_bound(classes_->begin(), classes_->end(), folded,
                                            [](const ClassPtr& definition, const std::string& wanted) {
                                                return definition->FoldedName() < wanted;
                                            });
        if (found != classes_->end() && (*found)->FoldedName() == folded) return *found;
        return Status(WBEM_E_INVALID_CLASS,
                      "there is no class " + std::string(name) + " for an embedded object");
    }

 private:
    const SchemaCache::ClassList classes_;
};

}  // namespace service
