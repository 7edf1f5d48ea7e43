#include "tools/mgmtctl/instance_stream.h"

#include <comutil.h>

#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"
#include "tools/mgmtctl/variants.h"

namespace mgmtctl {

InstanceStream InstanceStream::OfClass(IWbemServices& services, const std::wstring& class_name,
                                       const std::wstring& condition, bool is_shallow) {
    if (condition.empty()) return {Instances(services, class_name, is_shallow), {}};
    // A query is always for the subclasses, too.
    const std::wstring query = L"SELECT * FROM " + class_name + L" WHERE " + condition;
    return {Find(services, query), is_shallow ? class_name : std::wstring()};
}

InstanceStream InstanceStream::OfQuery(IWbemServices& services, const std::wstring& query) {
    return {Find(services, query), {}};
}

std::vector<CComPtr<IWbemClassObject>> InstanceStream::Next(std::size_t count) {
    std::vector<CComPtr<IWbemClassObject>> next;
    do {
        next = NextObjects(*objects_, count);
        if (only_class_.empty() || next.empty()) return next;
        std::erase_if(next, [&](const CComPtr<IWbemClassObject>& object) {
            const _variant_t name = ValueOf(*object, L"__CLASS");
            return name.vt != VT_BSTR || !EqualNames({name.bstrVal, SysStringLen(name.bstrVal)}, only_class_);
        });
    } while (next.empty());
    return next;
}

}  // namespace mgmtctl
