#include "service/notify/watched_classes.h"

#include "service/store/classes_of_a_moment.h"

namespace service {

Status WatchedClasses::Learn(RepositoryReader& reader) {
    if (generation_ == reader.SchemaGeneration()) return {};
    SERVICE_ASSIGN_OR_RETURN(const SchemaCache::ClassList all, reader.Classes(space_));
    for (const ClassPtr& definition : *all) {
        Watched& watched = classes_[definition->Id()];
        if (watched.definition == definition) continue;
        watched = {definition, filter_.OnClass(*definition)};
    }
    embedded_ = std::make_shared<const ClassesOfAMoment>(all);
    generation_ = reader.SchemaGeneration();
    return {};
}

// A class that was declared anew may have other superclasses and keys, so it is learnt again, too.
Status WatchedClasses::Find(RepositoryReader& reader, uint32_t class_id, const Watched*& watched) {
    SERVICE_RETURN_IF_ERROR(Learn(reader));
    const auto found = classes_.find(class_id);
    watched = found == classes_.end() ? nullptr : &found->second;
    return {};
}

}  // namespace service
