// A namespace as MOF, which imports as the same namespace.
//
//   MofExport exported(options, [](std::string_view mof) { std::cout << mof; });
//   exported.Write(L"\\\\.\\root\\A");
//
// The order is that of the names, superclasses first, and of the keys: the same namespace gives the same
// text. Instances pass through one by one; classes are held in memory. One thread that has initialised COM.
// Faults are thrown as OperationFailure.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/mgmtctl/schema.h"

namespace mgmtctl {

struct MofExportOptions {
    std::vector<std::wstring> classes;  // with those below them and all that they need; empty for all
    bool has_instances = false;         // of all classes, or of those named and those below them
    bool is_recursive = false;          // the namespaces below, too
};

class MofExport {
 public:
    using Writer = std::function<void(std::string_view mof)>;

    MofExport(MofExportOptions options, Writer write)
        : options_(std::move(options)), write_(std::move(write)) {}

    void Write(const std::wstring& namespace_path);

    std::size_t CountClasses() const { return classes_; }
    std::size_t CountInstances() const { return instances_; }

 private:
    void WriteNamespace(IWbemServices& services, const std::wstring& namespace_path);
    void WriteQualifierTypes(const std::wstring& namespace_path);
    void WriteClasses(const Schema& schema, const Schema::Names& names);
    void WriteInstances(IWbemServices& services, const Schema& schema, const Schema::Names& names,
                        Schema::Names& written);
    void WriteChildren(IWbemServices& services, const std::wstring& namespace_path);
    void WriteText(IWbemClassObject& object);

    const MofExportOptions options_;
    const Writer write_;
    std::size_t classes_ = 0;
    std::size_t instances_ = 0;
};

}  // namespace mgmtctl
