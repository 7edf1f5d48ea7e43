#include <iostream>

#include "tools/mgmtctl/changes.h"
#include "tools/mgmtctl/commands/commands.h"
#include "tools/mgmtctl/failure.h"
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

    // The library's Put skips null values, so null goes into the object that it holds. The null in the bag
    // keeps Put from writing the value that was read back over it. This way writes all that was read.
    bool UpdateWithNulls() const {
        CMgmtObject object(path_.c_str());
        if (!object.Get()) return false;
        const _variant_t held = object;
        for (const Change& change : changes_) {
            if (!IsNull(change.value)) continue;
            _variant_t null = change.value;
            const HRESULT result = ObjectOf(held)->Put(change.name.c_str(), 0, &null, 0);
            if (FAILED(result)) Fail("cannot change ", TakeReason(result));
        }
        SetValues(object);
        return object.Put(false);
    }

    void Create() const {
        ForgetReason();
        if (HasNullForDefault(changes_)) return CreateWithNulls();

        CMgmtObject object(path_.c_str());
        object.SetCategoryID(Wide(declaration_.summary.name));
        object.SetPropertyValue(KEY, id_.c_str());
        SetValues(object);
        if (!object.Put(true)) Fail("cannot create ", TakeReason());
    }

    // A new instance that has null where its class has a default: the library has no way to say that.
    void CreateWithNulls() const {
        CComPtr<IWbemClassObject> instance;
        HRESULT result = Spawn(declaration_, id_, changes_, instance);
        const CComPtr<IWbemServices> services = Connect(arguments_.namespace_path);
        if (SUCCEEDED(result))
            result = services->PutInstance(instance, WBEM_FLAG_CREATE_OR_UPDATE, nullptr, nullptr);
        if (FAILED(result)) Fail("cannot create ", TakeReason(result));
    }

    [[noreturn]] void Fail(const char* attempt, Reason reason) const {
        const bool may_create = reason.code == WBEM_E_NOT_FOUND && arguments_.path.empty();
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
