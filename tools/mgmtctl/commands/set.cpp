#include <iostream>

#include "tools/mgmtctl/changes.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/instance_keys.h"
#include "tools/mgmtctl/instance_path.h"
#include "tools/mgmtctl/json.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"
#include "utility/management/mgmt.h"

namespace mgmtctl {
namespace {

std::wstring PathOf(const Arguments& arguments, const ClassDeclaration& declaration) {
    if (!arguments.path.empty()) return Wide(arguments.path);
    return InstancePath(Wide(declaration.summary.name), Wide(arguments.id));
}

class Writer {
 public:
    Writer(const Arguments& arguments, const ClassDeclaration& declaration)
        : arguments_(arguments),
          declaration_(declaration),
          id_(Wide(arguments.id)),
          path_(PathOf(arguments, declaration)),
          changes_(ReadChanges(declaration, arguments.assignments)) {}

    // Whether the instance was made.
    bool Write() const {
        ForgetReason();
        if (HasNull(changes_) ? UpdateWithNulls() : Update()) return false;
        Reason reason = TakeReason();
        if (reason.code != WBEM_E_NOT_FOUND || !arguments_.is_create)
            Fail("cannot change ", std::move(reason));
        Create();
        return true;
    }

    std::string Path() const { return Utf8(path_); }
    std::size_t CountChanges() const { return changes_.size(); }

 private:
    // Writes the given properties and no others, so that what another process changes meanwhile stays.
    bool Update() const {
        CMgmtObject object(path_.c_str());
        SetValues(object);
        return object.Put(false);
    }

    // The same through the service, because the library leaves null values out.
    bool UpdateWithNulls() const {
        const CComPtr<IWbemServices> services = Connect(arguments_.namespace_path);
        CComPtr<IWbemClassObject> instance;
        HRESULT result = services->GetObject(_bstr_t(path_.c_str()), 0, nullptr, &instance, nullptr);
        if (SUCCEEDED(result)) result = Apply(changes_, *instance);
        if (SUCCEEDED(result))
            result = services->PutInstance(instance, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr);
        return SUCCEEDED(result);
    }

    void Create() const {
        ForgetReason();
        if (!arguments_.path.empty() || HasNull(changes_)) return CreateThroughService();

        CMgmtObject object(path_.c_str());
        object.SetCategoryID(Wide(declaration_.summary.name));
        object.SetPropertyValue(KEY, id_.c_str());
        SetValues(object);
        if (!object.Put(true)) Fail("cannot create ", TakeReason());
    }

    // A new instance whose keys stand in its path, or that has null: the library has no way to say either.
    void CreateThroughService() const {
        const std::vector<Change> keys =
            arguments_.path.empty() ? std::vector<Change>{{KEY, id_.c_str()}} : ReadKeys(declaration_, path_);
        const HRESULT result = PutNew(*Connect(arguments_.namespace_path), declaration_, keys, changes_,
                                      WBEM_FLAG_CREATE_OR_UPDATE);
        if (FAILED(result)) Fail("cannot create ", TakeReason(result));
    }

    [[noreturn]] void Fail(const char* attempt, Reason reason) const {
        const bool may_create = reason.code == WBEM_E_NOT_FOUND && !arguments_.is_create;
        std::string advice =
            may_create ? "Add --create to make it." : AdviceForWrite(reason.code, declaration_);
        throw OperationFailure(attempt + Path(), std::move(reason), std::move(advice));
    }

    void SetValues(CMgmtObject& object) const {
        for (const Change& change : changes_)
            object.SetPropertyValue(change.name, change.value);
    }

    const Arguments& arguments_;
    const ClassDeclaration& declaration_;
    const std::wstring id_;
    const std::wstring path_;
    const std::vector<Change> changes_;
};

// With another key it would be another instance.
void CheckKeysStay(const Arguments& arguments, const ClassDeclaration& declaration) {
    if (arguments.path.empty()) return;
    for (const Arguments::Assignment& each : arguments.assignments) {
        const DeclaredProperty* const property = declaration.Find(Wide(each.name));
        if (property == nullptr || !property->is_key) continue;
        throw UsageFailure(each.name +
                           " is a key and cannot be changed: make another instance and delete this one");
    }
}

}  // namespace

void Set(const Arguments& arguments) {
    RefuseClass("cannot change ", arguments.path);
    const ClassDeclaration declaration = arguments.path.empty() ? ReadClassWithId(arguments.class_name)
                                                                : ReadClass(ClassOfPath(arguments.path));
    CheckKeysStay(arguments, declaration);
    const Writer writer(arguments, declaration);
    const bool is_created = writer.Write();
    if (arguments.is_json) {
        PrintJson({{"path", writer.Path()},
                   {"result", is_created ? "created" : "updated"},
                   {"properties", writer.CountChanges()}});
        return;
    }
    std::cout << Printable(writer.Path()) << (is_created ? " created, " : " updated, ")
              << writer.CountChanges()
              << (writer.CountChanges() == 1 ? " property set\n" : " properties set\n");
}

}  // namespace mgmtctl
