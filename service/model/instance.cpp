#include "service/model/instance.h"

#include <algorithm>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr uint64_t kIsKnown = uint64_t{1} << 63;

void Add(const ObjectPtr& object, Embedding& sum) {
    const Embedding within = object->EmbeddedObjects();
    sum.depth = std::max(sum.depth, within.depth + 1);
    sum.objects += std::min(within.objects, kMaxEmbeddedObjects) + 1;
    sum.objects = std::min(sum.objects, kMaxEmbeddedObjects + 1);
}

}  // namespace

Status Instance::Read(size_t index, Value& storage, ValueView& view) const {
    bool is_set = false;
    SERVICE_RETURN_IF_ERROR(ReadOwn(index, is_set, storage, view));
    if (!is_set) view = ViewOf(class_->Properties()[index].default_value);
    return {};
}

Status Instance::ReadOwn(size_t index, bool& is_set, Value& storage, ValueView& view) const {
    is_set = false;
    if (!changes_.empty() && changes_[index].change != Change::kNone) {
        is_set = changes_[index].change == Change::kSet;
        if (is_set) view = ViewOf(changes_[index].value);
        return {};
    }
    if (!stored_) return {};
    return stored_->Read(class_->Properties()[index], index, is_set, storage, view);
}

bool Instance::IsSet(size_t index) const noexcept {
    if (!changes_.empty() && changes_[index].change != Change::kNone) {
        return changes_[index].change == Change::kSet;
    }
    return stored_ && stored_->Has(class_->Properties()[index], index);
}

Instance::Slot& Instance::SlotAt(size_t index) {
    if (changes_.empty()) changes_.resize(class_->Properties().size());
    return changes_[index];
}

Status Instance::Set(size_t index, Value value) {
    const PropertyDefinition& property = class_->Properties()[index];
    if (Status fault = CheckValue(property.type, value); !fault.ok()) {
        return {fault.code(), "property " + class_->Name() + "." + property.name + ": " + fault.reason()};
    }
    if (property.type.type == CimType::kObject) {
        const Embedding objects = EmbeddedObjectsOf(ViewOf(value));
        const std::string which = "property " + class_->Name() + "." + property.name;
        if (objects.depth > kMaxEmbeddingDepth) {
            return {WBEM_E_INVALID_OBJECT, which + ": objects are embedded more than " +
                                               std::to_string(kMaxEmbeddingDepth) + " deep"};
        }
        if (objects.objects > kMaxEmbeddedObjects) {
            return {WBEM_E_INVALID_OBJECT,
                    which + ": more than " + std::to_string(kMaxEmbeddedObjects) + " objects are embedded"};
        }
        embedding_.Store(0);
    }
    Slot& slot = SlotAt(index);
    slot.value = std::move(value);
    slot.change = Change::kSet;
    return {};
}

Embedding Instance::EmbeddedObjects() const {
    if (!class_->HasObjects()) return {};
    if (const uint64_t kept = embedding_.Load(); kept & kIsKnown) {
        return {static_cast<uint32_t>((kept & ~kIsKnown) >> 32), static_cast<uint32_t>(kept)};
    }
    Embedding sum;
    for (size_t i = 0; i < class_->Properties().size(); ++i) {
        if (class_->Properties()[i].type.type != CimType::kObject) continue;
        Value storage;
        ValueView view;
        bool is_set = false;
        if (!ReadOwn(i, is_set, storage, view).ok() || !is_set) continue;
        const Embedding value = EmbeddedObjectsOf(view);
        sum.depth = std::max(sum.depth, value.depth);
        sum.objects = std::min(sum.objects + value.objects, kMaxEmbeddedObjects + 1);
    }
    embedding_.Store(kIsKnown | uint64_t{sum.depth} << 32 | sum.objects);
    return sum;
}

void Instance::Unset(size_t index) {
    embedding_.Store(0);
    Slot& slot = SlotAt(index);
    slot.change = Change::kUnset;
    slot.value = {};
}

Result<Instance> Instance::MovedTo(const ClassPtr& newer) const {
    Instance moved(newer);
    for (size_t i = 0; i < class_->Properties().size(); ++i) {
        bool is_set = false;
        Value storage;
        ValueView view;
        SERVICE_RETURN_IF_ERROR(ReadOwn(i, is_set, storage, view));
        if (!is_set) continue;
        const PropertyDefinition& property = class_->Properties()[i];
        const auto index = newer->FindProperty(std::string_view(property.name));
        if (!index) {
            return {WBEM_E_INVALID_OBJECT, "class " + newer->Name() +
                                               " was changed meanwhile and has no property " + property.name +
                                               " any more: get the object anew"};
        }
        SERVICE_RETURN_IF_ERROR(moved.Set(*index, OwnedCopy(view)));
    }
    return moved;
}

bool SameInstance(const Instance& a, const Instance& b) {
    if (&a == &b) return true;
    const auto& properties = a.Class()->Properties();
    if (!EqualFolded(a.Class()->Name(), b.Class()->Name()) ||
        properties.size() != b.Class()->Properties().size()) {
        return false;
    }
    for (size_t i = 0; i < properties.size(); ++i) {
        const auto other = b.Class()->FindProperty(std::string_view(properties[i].name));
        Value storage_a, storage_b;
        ValueView view_a, view_b;
        if (!other || !a.Read(i, storage_a, view_a).ok() || !b.Read(*other, storage_b, view_b).ok())
            return false;
        if (!SameValue(OwnedCopy(view_a), OwnedCopy(view_b))) return false;
    }
    return true;
}

Embedding EmbeddedObjectsOf(const ValueView& value) {
    Embedding sum;
    if (const auto* object = std::get_if<const ObjectPtr*>(&value); object && **object) Add(**object, sum);
    if (const auto* array = std::get_if<const Array*>(&value)) {
        for (const Scalar& element : **array) {
            const auto* object = std::get_if<ObjectPtr>(&element);
            if (object && *object) Add(*object, sum);
        }
    }
    return sum;
}

}  // namespace service
