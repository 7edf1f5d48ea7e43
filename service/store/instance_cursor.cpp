#include "service/store/instance_cursor.h"

#include <utility>

#include "service/store/classes_of_a_moment.h"
#include "service/store/record_codec.h"

namespace service {
namespace {

// Of records, for one read.
constexpr size_t kEnoughBytes = size_t{1} << 20;

}  // namespace

Result<InstanceCursor> InstanceCursor::Open(std::shared_ptr<const Repository> repository,
                                            const Namespace& space, std::string_view class_name,
                                            Depth depth) {
    InstanceCursor cursor;
    cursor.repository_ = std::move(repository);
    SERVICE_RETURN_IF_ERROR(cursor.repository_->Read([&](RepositoryReader& reader) -> Status {
        cursor.classes_.clear();
        SERVICE_ASSIGN_OR_RETURN(ClassPtr top, reader.FindClass(space, class_name));
        if (depth == Depth::kDeep) {
            SERVICE_ASSIGN_OR_RETURN(cursor.classes_, reader.Subclasses(space, top->Name()));
        }
        cursor.classes_.insert(cursor.classes_.begin(), std::move(top));
        std::vector<uint32_t> class_ids;
        bool has_objects = false;
        for (const ClassPtr& definition : cursor.classes_) {
            class_ids.push_back(definition->Id());
            has_objects = has_objects || definition->HasObjects();
        }
        if (has_objects) {
            SERVICE_ASSIGN_OR_RETURN(SchemaCache::ClassList all, reader.Classes(space));
            cursor.embedded_ = std::make_shared<const ClassesOfAMoment>(std::move(all));
        }
        return reader.BeginScan(cursor.scan_, std::move(class_ids));
    }));
    return cursor;
}

Status InstanceCursor::Read(size_t count, std::vector<Instance>& instances) {
    const size_t enough = instances.size() + count;
    size_t bytes = 0;
    Status damaged;
    SERVICE_RETURN_IF_ERROR(repository_->Read([&](RepositoryReader& reader) {
        return reader.ContinueScan(scan_, [&](size_t class_index, std::string_view record) {
            Result<Instance> instance = DecodeInstance(classes_[class_index], record, embedded_);
            if (!instance.ok()) {
                if (damaged.ok()) damaged = std::move(instance).status();
                return false;
            }
            instances.push_back(std::move(*instance));
            bytes += record.size();
            return instances.size() < enough && bytes < kEnoughBytes;
        });
    }));
    return damaged;
}

}  // namespace service
