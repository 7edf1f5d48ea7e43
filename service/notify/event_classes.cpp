#include "service/notify/event_classes.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "service/model/no_destructor.h"
#include "service/model/text.h"

namespace service {
namespace {

// From 1601 to 1970, in 100 ns.
constexpr int64_t kEpochDifference = 116'444'736'000'000'000;
constexpr int64_t kNanosecondsPerTick = 100;

struct EventClasses {
    ClassPtr event;
    ClassPtr operation;
    ClassPtr creation;
    ClassPtr modification;
    ClassPtr deletion;
};

PropertyDeclaration Property(std::string name, CimType type) {
    PropertyDeclaration property;
    property.name = std::move(name);
    property.type.type = type;
    return property;
}

ClassPtr Make(std::string name, std::vector<PropertyDeclaration> properties, ClassPtr superclass) {
    ClassDeclaration declaration;
    declaration.name = std::move(name);
    if (superclass) declaration.superclass = superclass->Name();
    declaration.properties = std::move(properties);
    for (uint32_t i = 0; i < declaration.properties.size(); ++i)
        declaration.properties[i].ordinal = i;
    // Classes of the store have numbers from 1 on. These are told apart by how deep they derive, which is
    // enough to tell their properties apart.
    const auto number =
        static_cast<uint32_t>(UINT32_MAX - (superclass ? superclass->Derivation().size() + 1 : 0));
    Result<ClassPtr> definition =
        ClassDefinition::Resolve(number, std::move(declaration), std::move(superclass));
    if (!definition.ok()) throw std::logic_error(definition.status().reason());
    return std::move(*definition);
}

EventClasses MakeAll() {
    EventClasses classes;
    classes.event = Make("__Event", {Property("TIME_CREATED", CimType::kUint64)}, nullptr);
    classes.operation =
        Make("__InstanceOperationEvent", {Property("TargetInstance", CimType::kObject)}, classes.event);
    classes.creation = Make("__InstanceCreationEvent", {}, classes.operation);
    classes.modification = Make("__InstanceModificationEvent",
                                {Property("PreviousInstance", CimType::kObject)}, classes.operation);
    classes.deletion = Make("__InstanceDeletionEvent", {}, classes.operation);
    return classes;
}

const EventClasses& All() {
    static NoDestructor<EventClasses> classes(MakeAll());
    return *classes;
}

const ClassPtr& ClassOf(ChangeKind kind) {
    switch (kind) {
        case ChangeKind::kCreated:
            return All().creation;
        case ChangeKind::kModified:
            return All().modification;
        default:
            return All().deletion;
    }
}

Status SetObject(Instance& event, std::string_view name, ObjectPtr object) {
    return event.Set(*event.Class()->FindProperty(name), std::move(object));
}

}  // namespace

ClassPtr FindEventClass(std::string_view name) {
    const EventClasses& all = All();
    for (const ClassPtr& candidate : {all.operation, all.creation, all.modification, all.deletion}) {
        if (EqualFolded(candidate->Name(), name)) return candidate;
    }
    return nullptr;
}

bool CoversKind(const ClassDefinition& event_class, ChangeKind kind) {
    return ClassOf(kind)->IsA(event_class.Name());
}

Result<Instance> MakeEvent(ChangeKind kind, int64_t time_ns, ObjectPtr before, ObjectPtr after) {
    Instance event(ClassOf(kind));
    const auto ticks = static_cast<uint64_t>(time_ns / kNanosecondsPerTick + kEpochDifference);
    SERVICE_RETURN_IF_ERROR(event.Set(*event.Class()->FindProperty(std::string_view("TIME_CREATED")), ticks));
    const bool is_deletion = kind == ChangeKind::kDeleted;
    if (kind == ChangeKind::kModified) SERVICE_RETURN_IF_ERROR(SetObject(event, "PreviousInstance", before));
    SERVICE_RETURN_IF_ERROR(
        SetObject(event, "TargetInstance", is_deletion ? std::move(before) : std::move(after)));
    return event;
}

}  // namespace service
