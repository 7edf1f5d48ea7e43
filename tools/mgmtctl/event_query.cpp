#include "tools/mgmtctl/event_query.h"

#include "tools/mgmtctl/instance_path.h"

namespace mgmtctl {
namespace {

constexpr EventKind KINDS[] = {EventKind::CREATED, EventKind::MODIFIED, EventKind::DELETED};

}  // namespace

std::wstring EventQuery(const std::wstring& class_name, const std::wstring& id,
                        const std::set<EventKind>& kinds) {
    const std::wstring event_class =
        kinds.size() == 1 ? EventClass(*kinds.begin()) : L"__InstanceOperationEvent";
    std::wstring query =
        L"SELECT * FROM " + event_class + L" WITHIN 1 WHERE TargetInstance ISA \"" + class_name + L"\"";
    if (!id.empty()) query += L" AND TargetInstance.INSTANCE_ID = \"" + EscapeId(id) + L"\"";
    if (kinds.size() != 2) return query;
    for (const EventKind kind : KINDS) {
        if (!kinds.contains(kind)) query += L" AND __CLASS <> \"" + std::wstring(EventClass(kind)) + L"\"";
    }
    return query;
}

}  // namespace mgmtctl
