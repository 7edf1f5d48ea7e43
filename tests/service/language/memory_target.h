// A target of MOF imports that keeps everything in memory, and refuses what it is told to refuse.
//
//   MemoryTarget target;
//   MofImport import = Import(target, "class A { [key] string K; };");
//   const Instance* a = target.FindInstance("A.K=\"1\"");
//
// One thread at a time.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/language/mof_compiler.h"
#include "service/model/object_path.h"
#include "service/model/text.h"

namespace service {

class MemoryTarget : public MofTarget {
 public:
    Status UseNamespace(const std::string& path) override {
        SERVICE_ASSIGN_OR_RETURN(const NamespacePath parsed, ParseNamespacePath(path));
        current_ = Fold(parsed.path);
        namespaces[current_];
        calls.push_back("use " + path);
        return {};
    }

    Status CreateChildNamespace(const std::string& name) override {
        namespaces[current_ + '\\' + Fold(name)];
        calls.push_back("namespace " + name);
        return {};
    }

    Result<ClassPtr> FindClass(std::string_view name) override {
        if (ClassPtr found = namespaces[current_].Class(name)) return found;
        return Status(WBEM_E_NOT_FOUND, "there is no such class");
    }

    Status PutClass(ClassDeclaration declaration, const MofUpdate& update) override {
        calls.push_back("class " + declaration.name + FlagsOf(update));
        if (EqualFolded(declaration.name, refused)) return {WBEM_E_ACCESS_DENIED, "the target refuses it"};
        ClassPtr superclass;
        if (!declaration.superclass.empty()) {
            SERVICE_ASSIGN_OR_RETURN(superclass, FindClass(declaration.superclass));
        }
        uint32_t ordinal = 0;
        for (PropertyDeclaration& property : declaration.properties)
            property.ordinal = ordinal++;
        SERVICE_ASSIGN_OR_RETURN(
            ClassPtr resolved,
            ClassDefinition::Resolve(++class_id_, std::move(declaration), std::move(superclass)));
        namespaces[current_].classes[resolved->FoldedName()] = resolved;
        return {};
    }

    Status PutInstance(Instance instance, const MofUpdate& update) override {
        if (EqualFolded(instance.Class()->Name(), refused))
            return {WBEM_E_ACCESS_DENIED, "the target refuses it"};
        SERVICE_ASSIGN_OR_RETURN(const std::string path, RelativePathOf(instance));
        calls.push_back("instance " + path + FlagsOf(update));
        namespaces[current_].instances.insert_or_assign(path, std::move(instance));
        return {};
    }

    Status PutQualifierDeclaration(QualifierDeclaration declaration) override {
        std::string name = Fold(declaration.name);
        namespaces[current_].qualifiers.insert_or_assign(std::move(name), std::move(declaration));
        return {};
    }

    Result<std::vector<QualifierDeclaration>> QualifierDeclarations() override {
        std::vector<QualifierDeclaration> all;
        for (const auto& [name, declaration] : namespaces[current_].qualifiers)
            all.push_back(declaration);
        return all;
    }

    Status DeleteClass(const std::string& name) override {
        calls.push_back("delete class " + name);
        if (EqualFolded(name, refused)) return {WBEM_E_CLASS_HAS_INSTANCES, "it has instances"};
        if (namespaces[current_].classes.erase(Fold(name)) > 0) return {};
        return {WBEM_E_INVALID_CLASS, "there is no class " + name};
    }

    Status DeleteInstance(const ObjectPath& path) override {
        calls.push_back("delete instance " + PrintObjectPath(path));
        if (namespaces[current_].instances.erase(PrintObjectPath(path)) > 0) return {};
        return {WBEM_E_NOT_FOUND, "there is no such instance"};
    }

    struct Space {
        ClassPtr Class(std::string_view name) const {
            const auto found = classes.find(Fold(name));
            return found == classes.end() ? nullptr : found->second;
        }

        std::map<std::string, QualifierDeclaration> qualifiers;
        std::map<std::string, ClassPtr> classes;
        std::map<std::string, Instance> instances;  // by their relative paths
    };

    // Both look into root\test, the namespace that Import begins in.
    ClassPtr Class(const std::string& name) const { return namespaces.at("root\\test").Class(name); }
    const Instance* FindInstance(const std::string& path) const {
        const auto& instances = namespaces.at("root\\test").instances;
        const auto found = instances.find(path);
        return found == instances.end() ? nullptr : &found->second;
    }

    std::map<std::string, Space> namespaces;
    std::vector<std::string> calls;
    std::string refused;  // a class that cannot be put, nor instances of it

 private:
    static std::string FlagsOf(const MofUpdate& update) {
        return std::string(update.is_update_only ? " update-only" : "") +
               (update.is_create_only ? " create-only" : "") + (update.is_forced ? " forced" : "");
    }

    std::string current_;
    uint32_t class_id_ = 0;
};

inline MofImport Import(MemoryTarget& target, std::string_view text, const MofOptions& options = {}) {
    const MofSource source{"a.mof", text};
    return CompileMof({&source, 1}, "root\\test", target, options);
}

// Its place and its message; empty when there was none.
inline std::string FaultIn(const MofImport& import) {
    return import.fault ? Describe(*import.fault) : "";
}

// The property's value as it reads, default included.
inline Value ValueOf(const Instance& instance, std::string_view property) {
    Value storage;
    ValueView view;
    const auto index = instance.Class()->FindProperty(property);
    if (!index || !instance.Read(*index, storage, view).ok()) return std::string("unreadable");
    return OwnedCopy(view);
}

}  // namespace service
