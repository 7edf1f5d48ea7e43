// The input is a MOF text, and behind each line "////" a file that it may include, by the names 1, 2, ...
#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "service/language/mof_parser.h"
#include "service/language/mof_writer.h"
#include "service/model/object_path.h"
#include "tests/fuzz/expectations.h"
#include "tests/service/language/memory_target.h"

namespace {

using namespace service;
using fuzz::Expect;

class Files final : public MofFiles {
 public:
    explicit Files(std::string_view input) {
        constexpr std::string_view kBorder = "\n////\n";
        for (size_t end = input.find(kBorder); end != std::string_view::npos; end = input.find(kBorder)) {
            parts_.push_back(input.substr(0, end));
            input.remove_prefix(end + kBorder.size());
        }
        parts_.push_back(input);
    }

    Result<Found> Find(std::string_view name, const MofSource& including) override {
        if (IndexOf(name) < parts_.size()) return Found{std::string(name), std::string(name)};
        return Status(WBEM_E_NOT_FOUND, including.name + " includes a file that is not there");
    }
    Result<std::string> Read(const Found& found) override { return std::string(Text(found.file)); }

    std::string_view Text(std::string_view name) const { return parts_.at(IndexOf(name)); }

 private:
    static size_t IndexOf(std::string_view name) {
        size_t index = 0;
        const auto read = std::from_chars(name.data(), name.data() + name.size(), index);
        const bool is_number = read.ec == std::errc() && std::to_string(index) == name;
        return is_number ? index : static_cast<size_t>(-1);
    }

    std::vector<std::string_view> parts_;
};

MofImport Compile(Files& files, MemoryTarget& target) {
    const MofSource source{"0", files.Text("0"), "0"};
    MofOptions options;
    options.files = &files;
    options.warn = [](const std::string& sentence) { fuzz::ExpectSentence(-1, sentence); };
    return CompileMof({&source, 1}, "root\\test", target, options);
}

void ExpectDiagnostic(const MofDiagnostic& fault, const Files& files) {
    fuzz::ExpectSentence(fault.code, fault.message);
    const std::string where = Describe(fault);
    const std::string_view text = files.Text(fault.file);
    const auto lines = static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char unit) { return unit == '\n' || unit == '\r'; }) + 1);
    Expect(fault.line >= 1 && fault.line <= lines, "the fault lies on a line of the text", where);
    Expect(fault.column >= 1 && fault.column <= text.size() + 1, "the fault lies within its line", where);
}

std::string Exported(const MemoryTarget::Space& space) {
    std::string text;
    for (const auto& [name, declaration] : space.qualifiers)
        AppendQualifierDeclarationMof(declaration, text);
    MofForm form;
    form.declared_flavor = [&space](std::string_view name) -> std::optional<uint32_t> {
        const auto found = space.qualifiers.find(Fold(name));
        if (found == space.qualifiers.end()) return std::nullopt;
        return found->second.flavor;
    };
    for (const auto& [name, definition] : space.classes) {
        const Status fault = AppendClassMof(definition->Declaration(), form, text);
        Expect(fault.ok(), "a class can be exported", fault.reason());
    }
    for (const auto& [name, instance] : space.instances) {
        const Status fault = AppendInstanceMof(instance, text);
        Expect(fault.ok(), "an instance can be exported", fault.reason());
    }
    return text;
}

// Everything that the target was given, as MOF.
std::string Exported(const MemoryTarget& target) {
    std::string text;
    for (const auto& [path, space] : target.namespaces) {
        const std::string exported = Exported(space);
        if (!exported.empty()) text += "#pragma namespace(" + QuoteForPath(path) + ")\n" + exported;
    }
    return text;
}

void CheckExport(const MemoryTarget& target) {
    const std::string text = Exported(target);
    Files files(text);
    MemoryTarget other;
    const std::string fault = FaultIn(Compile(files, other));
    Expect(fault.empty(), "an export can be imported", fault + "\n" + text);
    Expect(Exported(other) == text, "what was exported and imported is exported as the same", text);
}

// The target does not look after what hangs on a class that is deleted or declared anew.
bool IsConsistent(const MemoryTarget::Space& space) {
    for (const auto& [name, definition] : space.classes) {
        const ClassPtr& superclass = definition->Superclass();
        if (superclass && space.Class(superclass->Name()) != superclass) return false;
    }
    for (const auto& [path, instance] : space.instances) {
        if (space.Class(instance.Class()->Name()) != instance.Class()) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Files files({reinterpret_cast<const char*>(data), size});
    MofFile file;
    const std::optional<MofDiagnostic> parse_fault = ParseMof({"0", files.Text("0")}, file);
    MemoryTarget target;
    const MofImport import = Compile(files, target);
    Expect(!parse_fault || import.fault, "what cannot be parsed cannot be imported");
    if (parse_fault) ExpectDiagnostic(*parse_fault, files);
    if (import.fault) {
        ExpectDiagnostic(*import.fault, files);
        return 0;
    }
    const bool is_consistent = std::all_of(target.namespaces.begin(), target.namespaces.end(),
                                           [](const auto& entry) { return IsConsistent(entry.second); });
    if (is_consistent) CheckExport(target);
    return 0;
}
