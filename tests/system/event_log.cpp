// event_log STORE FILE: writes the store's change log into the file, one LoggedChange after the other.
//
// It reads the store itself. A process that does so must not use the store through the library, too, so this
// is a program of its own.
#include <cstdio>
#include <fstream>
#include <string>

#include "service/store/repository.h"
#include "tests/system/logged_change.h"

namespace {

service::ValueView ValueOf(const service::Instance& instance, std::string_view name,
                           service::Value& storage) {
    service::ValueView view;
    const auto index = instance.Class()->FindProperty(name);
    return index && instance.Read(*index, storage, view).ok() ? view : service::ValueView();
}

uint32_t NumberIn(const service::Instance& instance, std::string_view name) {
    service::Value storage;
    const service::ValueView value = ValueOf(instance, name, storage);
    const auto* number = std::get_if<uint64_t>(&value);
    return number ? static_cast<uint32_t>(*number) : 0;
}

LoggedChange Describe(const service::ChangeView& change, const service::Instance& target) {
    service::Value storage;
    const service::ValueView id = ValueOf(target, "INSTANCE_ID", storage);
    const auto* text = std::get_if<std::string_view>(&id);
    const std::string& name = target.Class()->Name();
    return {change.number,
            static_cast<LoggedChange::Kind>(change.kind),
            name == "Thing"      ? LoggedChange::kThing
            : name == "SubThing" ? LoggedChange::kSubThing
                                 : LoggedChange::kOther,
            text && !text->empty() ? static_cast<uint32_t>(text->back() - '0') : 0,
            NumberIn(target, "N"),
            NumberIn(target, "Days"),
            0};
}

service::Status Write(service::RepositoryReader& reader, std::ostream& out) {
    SERVICE_ASSIGN_OR_RETURN(const service::Namespace space, reader.FindNamespace("root\\Vantrel\\Halvenor"));
    SERVICE_ASSIGN_OR_RETURN(const service::SchemaCache::ClassList classes, reader.Classes(space));
    bool is_complete = false;
    return reader.ScanChanges(0, is_complete, [&](const service::ChangeView& change) {
        for (const service::ClassPtr& definition : *classes) {
            if (definition->Id() != change.class_id) continue;
            const auto before = service::DecodeInstance(definition, change.before, nullptr);
            const auto after = service::DecodeInstance(definition, change.after, nullptr);
            LoggedChange logged = Describe(change, after.ok() ? *after : *before);
            if (before.ok()) logged.days_before = NumberIn(*before, "Days");
            out.write(reinterpret_cast<const char*>(&logged), sizeof logged);
        }
        return is_complete;
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 64;
    const auto repository = service::Repository::Open(argv[1]);
    if (!repository.ok()) return 1;
    std::ofstream out(argv[2], std::ios::binary);
    const service::Status fault =
        (*repository)->Read([&](service::RepositoryReader& reader) { return Write(reader, out); });
    if (!fault.ok()) std::fprintf(stderr, "event_log: %s\n", fault.reason().c_str());
    return fault.ok() && out.flush() ? 0 : 1;
}
