// Turns MOF texts into classes, instances and namespaces of a target.
//
//   MofImport import = CompileMof(sources, "root\\Policies", target);
//   if (import.fault) return Report(Describe(*import.fault));   // and the caller's transaction is dropped
//
// All sources, and the files that they include, are one import: a class may be declared behind, or in another
// file than, what derives from it or refers to it. In this order are put: the namespaces; the declarations of
// qualifiers; the classes, each behind its superclass; the instances in the order in which they stand. Every
// source begins in the default namespace; what it includes stands in it as if it were part of it, with its
// aliases, which hold within the source. A file that is included again, or named as a source besides, is
// compiled once for each namespace that it begins in; one that names its namespace before all else, once.
//
// `#pragma deleteclass` and `#pragma deleteinstance` come out as if everything were done in the order in
// which it stands: they come before what is declared, and instances are deleted among instances. Where that
// cannot be, they are refused. What the word `nofail` lets pass is a thing that is not there, silently, and a
// class that has subclasses or instances, with a warning.
//
// A qualifier takes its type, its value where it has none and the flavors that it does not name from its
// declaration, which stands in the import or in the namespace; a value of another type is a fault, a place
// that its scope does not allow a warning. One without a declaration is taken as it is written.
//
// How declarations become properties:
//   `C Name`                              an embedded object of class C or one that derives from it
//   `object Name`                         an embedded object of any class
//   `[EmbeddedInstance("C")] string Name`  the same as `C Name`; the qualifier is kept
//   `[EmbeddedObject] string Name`        the same as `object Name`
//   `C ref Name`, `object ref Name`       a reference to an instance of C, or of any class
// A subclass that declares such a string anew without the qualifier means the inherited type. The value of an
// embedded object is written `instance of C { ... }` in every case, or as a text that says so.
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
#include <vector>

#include "service/language/mof_diagnostic.h"
#include "service/language/mof_parser.h"
#include "service/language/mof_syntax.h"
#include "service/model/class_definition.h"
#include "service/model/instance.h"
#include "service/model/object_path.h"
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

    // Creates or updates a class of the current namespace, as the text asks where it does. The ordinals of
    // its properties are the target's to give. Classes that it only refers to may come later.
    virtual Status PutClass(ClassDeclaration declaration, const MofUpdate& update) = 0;

    // Classes of the current namespace are put between the two, and what is stored is looked at, or changed,
    // in FinishClasses; nothing in a target that holds no instances. `names` are theirs; `at_fault` names the
    // class or the qualifier that is refused.
    virtual Status BeginClasses(const std::vector<std::string>& /*names*/) { return {}; }
    virtual Status FinishClasses(std::string& /*at_fault*/) { return {}; }

    // Creates or updates an instance in the current namespace; its class is one that FindClass returned.
    virtual Status PutInstance(Instance instance, const MofUpdate& update) = 0;

    // Creates or updates the declaration of a qualifier in the current namespace.
    virtual Status PutQualifierDeclaration(QualifierDeclaration declaration) = 0;

    // Those of the current namespace, with everything put so far.
    virtual Result<std::vector<QualifierDeclaration>> QualifierDeclarations() = 0;

    // Both delete in the current namespace; WBEM_E_INVALID_CLASS or WBEM_E_NOT_FOUND when there is no such
    // thing. The class may not have subclasses or instances unless the target was asked to force it.
    virtual Status DeleteClass(const std::string& name) = 0;
    virtual Status DeleteInstance(const ObjectPath& path) = 0;
};

// Where `#pragma include` finds its files. Files are known by their `file`: the same for the same file.
class MofFiles {
 public:
    struct Found {
        std::string name;  // for diagnostics
        std::string file;
    };
    virtual ~MofFiles() = default;

    // What `name` stands for in `including`. A fault's reason says which file is missing.
    virtual Result<Found> Find(std::string_view name, const MofSource& including) = 0;
    virtual Result<std::string> Read(const Found& found) = 0;
};

struct MofSummary {
    size_t qualifiers = 0;
    size_t classes = 0;
    size_t instances = 0;
    size_t deletions = 0;   // that found what they delete
    size_t namespaces = 0;  // declared by an instance of __Namespace
};

struct MofOptions {
    // Called with the number of declarations that have been put and of all there are, after every
    // `progress_interval` of them and after the last.
    std::function<void(size_t done, size_t total)> progress;
    size_t progress_interval = 100;

    // Called with one sentence, file and line in front, for what was read past or looks wrong; once for each
    // thing, however often it stands there.
    std::function<void(const std::string& sentence)> warn;

    // Without it includes are refused. Outlives the call.
    MofFiles* files = nullptr;
};

struct MofImport {
    MofSummary summary;                  // what was put, up to the fault where there is one
    std::optional<MofDiagnostic> fault;  // none when everything was put
};

// The bytes of the sources are needed during the call only. A source without bytes but with a file is read
// from there.
MofImport CompileMof(std::span<const MofSource> sources, const std::string& default_namespace,
                     MofTarget& target, const MofOptions& options = {});

}  // namespace service
