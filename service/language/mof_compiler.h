// Turns MOF texts into classes, instances and namespaces of a target.
//
//   MofImport import = CompileMof(sources, "root\\Policies", target);
//   if (import.fault) return Report(Describe(*import.fault));   // and the caller's transaction is dropped
//
// All sources are one import: a class may be declared behind, or in another source than, what derives from it
// or refers to it. Classes come before instances and each behind its superclass; instances come in the order
// in which they stand. Aliases hold within their source. Every source begins in the default namespace.
//
// How declarations become properties:
//   `C Name`                              an embedded object of class C or one that derives from it
//   `object Name`                         an embedded object of any class
//   `[EmbeddedInstance("C")] string Name`  the same as `C Name`; the qualifier is kept
//   `[EmbeddedObject] string Name`        the same as `object Name`
//   `C ref Name`, `object ref Name`       a reference to an instance of C, or of any class
// A subclass that declares such a string anew without the qualifier means the inherited type. The value of an
// embedded object is written `instance of C { ... }` in every case.
//
// Checks that all namespaces, classes and properties named are there and that every value fits its property;
// what else makes a class or an instance acceptable the target says. Nothing is held beyond the call. The
// time taken grows with the length of the texts; a syntax tree of some five times their size is held
// meanwhile. A call belongs to one thread, and calls with different targets may run on any number of them.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "service/language/mof_diagnostic.h"
#include "service/language/mof_parser.h"
#include "service/model/class_definition.h"
#include "service/model/instance.h"
#include "service/model/status.h"

namespace service {

// Where an import goes. A fault that it returns ends the import and is reported at the declaration's place.
class MofTarget {
 public:
    virtual ~MofTarget() = default;

    // Makes the namespace `path` (`\\.\root\A` or `root\A`, as spelled) the one that later calls act in. One
    // that is not there is made. Called whenever the namespace changes, often the same one again.
    virtual Status UseNamespace(const std::string& path) = 0;

    // Makes the namespace `name` below the current one; one that is there already is no fault.
    virtual Status CreateChildNamespace(const std::string& name) = 0;

    // The class of that name in the current namespace, with everything put so far;
    // WBEM_E_INVALID_CLASS or WBEM_E_NOT_FOUND when there is none.
    virtual Result<ClassPtr> FindClass(std::string_view name) = 0;

    // Creates or updates a class of the current namespace. The ordinals of its properties are the target's to
    // give. Classes that it only refers to may come later.
    virtual Status PutClass(ClassDeclaration declaration) = 0;

    // Creates or updates an instance in the current namespace; its class is one that FindClass returned.
    virtual Status PutInstance(Instance instance) = 0;
};

struct MofSummary {
    size_t classes = 0;
    size_t instances = 0;
    size_t namespaces = 0;  // declared by an instance of __Namespace
};

struct MofOptions {
    // Called with the number of declarations that have been put and of all there are, after every
    // `progress_interval` of them and after the last.
    std::function<void(size_t done, size_t total)> progress;
    size_t progress_interval = 1000;
};

struct MofImport {
    MofSummary summary;                  // what was put, up to the fault where there is one
    std::optional<MofDiagnostic> fault;  // none when everything was put
};

// The bytes of the sources are needed during the call only.
MofImport CompileMof(std::span<const MofSource> sources, const std::string& default_namespace,
                     MofTarget& target, const MofOptions& options = {});

}  // namespace service
