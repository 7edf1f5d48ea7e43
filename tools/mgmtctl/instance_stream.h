// The instances that a command is about, some at a time, as the service finds them.
//
//   InstanceStream stream = InstanceStream::OfClass(*services, "Policy", "Days > 30", false);
//   for (auto some = stream.Next(100); !some.empty(); some = stream.Next(100)) ...
//
// Holds none of them itself. One thread. Failures are thrown as OperationFailure.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <atlbase.h>
#include <wbemidl.h>

namespace mgmtctl {

class InstanceStream {
 public:
    // Those for which `condition` holds, all where it is empty; with `is_shallow` none of a subclass.
    static InstanceStream OfClass(IWbemServices& services, const std::wstring& class_name,
                                  const std::wstring& condition, bool is_shallow);
    static InstanceStream OfQuery(IWbemServices& services, const std::wstring& query);

    // At most `count`, fewer when those that come next take a moment; empty at the end.
    std::vector<CComPtr<IWbemClassObject>> Next(std::size_t count);

 private:
    InstanceStream(CComPtr<IEnumWbemClassObject> objects, std::wstring only_class)
        : objects_(std::move(objects)), only_class_(std::move(only_class)) {}

    CComPtr<IEnumWbemClassObject> objects_;
    std::wstring only_class_;  // others are passed over; empty for none
};

}  // namespace mgmtctl
