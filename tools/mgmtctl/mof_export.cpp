#include "tools/mgmtctl/mof_export.h"

#include <algorithm>
#include <utility>

#include <mgmtstore.h>

#include "tools/mgmtctl/failure.h"
#include "tools/mgmtctl/service.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {
namespace {

std::string QuotedPath(const std::string& path) {
    std::string quoted = "\"";
    for (const char c : path) {
        if (c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

// As the namespace is spelled where it was made.
std::string SpelledPath(IWbemServices& services) {
    CComPtr<IWbemClassObject> object;
    Check(services.GetObject(_bstr_t(L"__Namespace"), 0, nullptr, &object, nullptr),
          "cannot read the namespace");
    return "\\\\.\\" + TextOf(*object, L"__NAMESPACE");
}

void AddObjectClasses(const VARIANT& value, std::vector<std::wstring>& names);

void AddObjectClasses(IWbemClassObject& object, std::vector<std::wstring>& names) {
    for (const Property& property : PropertiesOf(object)) {
        if (ElementType(property.type) == CIM_OBJECT) AddObjectClasses(property.value, names);
    }
}

void AddObjectClasses(const VARIANT& value, std::vector<std::wstring>& names) {
    for (const _variant_t& element : ElementsOf(value))
        AddObjectClasses(element, names);
    const CComPtr<IWbemClassObject> object = ObjectOf(value);
    if (object == nullptr) return;
    names.push_back(Wide(TextOf(*object, L"__CLASS")));
    AddObjectClasses(*object, names);
}

Schema::Names Difference(const Schema::Names& all, const Schema::Names& without) {
    Schema::Names rest;
    std::set_difference(all.begin(), all.end(), without.begin(), without.end(),
                        std::inserter(rest, rest.end()));
    return rest;
}

}  // namespace

void MofExport::Write(const std::wstring& namespace_path) {
    const CComPtr<IWbemServices> services = Connect(namespace_path);
    WriteNamespace(*services, namespace_path);
    if (options_.is_recursive) WriteChildren(*services, namespace_path);
}

void MofExport::WriteNamespace(IWbemServices& services, const std::wstring& namespace_path) {
    const Schema schema = Schema::Read(services);
    for (const std::wstring& name : options_.classes) {
        if (schema.Find(name) != nullptr) continue;
        throw OperationFailure(
            "there is no class " + Utf8(name) + " in the namespace " + Utf8(namespace_path),
            "\"mgmtctl classes\" lists the classes.");
    }
    const Schema::Names named =
        options_.classes.empty() ? schema.All() : schema.WithSubclasses(options_.classes);
    Schema::Names written = schema.WithNeeds(named);
    write_("#pragma namespace(" + QuotedPath(SpelledPath(services)) + ")\n");
    WriteQualifierTypes(namespace_path);
    WriteClasses(schema, written);
    if (options_.has_instances) WriteInstances(services, schema, named, written);
}

void MofExport::WriteQualifierTypes(const std::wstring& namespace_path) {
    const std::string attempt = "cannot read the qualifier declarations";
    CComPtr<IMgmtStore> store;
    Check(store.CoCreateInstance(CLSID_MgmtStore), attempt);
    CComBSTR mof;
    Check(store->GetQualifierTypes(namespace_path.c_str(), &mof), attempt);
    if (mof.Length() != 0) write_("\n" + Utf8(static_cast<BSTR>(mof)));
}

void MofExport::WriteClasses(const Schema& schema, const Schema::Names& names) {
    for (const SchemaClass* each : schema.InOrder(names)) {
        WriteText(*each->object);
        ++classes_;
    }
}

// An object may hold others of any class; those that come to light so follow, which a compiler allows.
void MofExport::WriteInstances(IWbemServices& services, const Schema& schema, const Schema::Names& names,
                               Schema::Names& written) {
    const bool may_lack_classes = !options_.classes.empty();
    std::vector<std::wstring> held;
    for (const SchemaClass* each : schema.InOrder(names)) {
        ForEach(*Instances(services, each->name, true), [&](IWbemClassObject& object) {
            WriteText(object);
            ++instances_;
            if (!may_lack_classes || !each->has_objects) return;
            AddObjectClasses(object, held);
            std::sort(held.begin(), held.end());
            held.erase(std::unique(held.begin(), held.end()), held.end());
        });
    }
    Schema::Names needed = written;
    for (const std::wstring& name : held)
        needed.insert(Schema::Fold(name));
    WriteClasses(schema, Difference(schema.WithNeeds(std::move(needed)), written));
}

void MofExport::WriteChildren(IWbemServices& services, const std::wstring& namespace_path) {
    std::vector<std::wstring> children;
    ForEach(*Instances(services, L"__Namespace"),
            [&](IWbemClassObject& below) { children.push_back(Wide(TextOf(below, L"Name"))); });
    std::sort(children.begin(), children.end());
    for (const std::wstring& name : children) {
        write_("\n#pragma namespace(" + QuotedPath(SpelledPath(services)) + ")\n");
        write_("\ninstance of __Namespace\n{\n    Name = \"" + Utf8(name) + "\";\n};\n\n");
        Write(namespace_path + L"\\" + name);
    }
}

void MofExport::WriteText(IWbemClassObject& object) {
    CComBSTR mof;
    Check(object.GetObjectText(0, &mof), "cannot write " + TextOf(object, L"__RELPATH") + " as MOF");
    write_("\n" + Utf8(static_cast<BSTR>(mof)));
}

}  // namespace mgmtctl
