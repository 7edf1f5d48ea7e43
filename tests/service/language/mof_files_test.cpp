// Imports of several files that include one another.
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/language/memory_target.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

// Files in memory; names count from the folder of the file that includes.
class MemoryFiles : public MofFiles {
 public:
    explicit MemoryFiles(std::map<std::string, std::string> files) : files_(std::move(files)) {}

    Result<Found> Find(std::string_view name, const MofSource& including) override {
        const size_t folder = including.file.rfind('/') + 1;
        std::string file = including.file.substr(0, folder) + std::string(name);
        if (!files_.contains(file)) return Status(WBEM_E_NOT_FOUND, "there is no file " + file);
        return Found{file, file};
    }
    Result<std::string> Read(const Found& found) override {
        read.push_back(found.file);
        return files_.at(found.file);
    }

    std::vector<std::string> read;

 private:
    const std::map<std::string, std::string> files_;
};

MofImport ImportFiles(MemoryTarget& target, MemoryFiles& files, const std::vector<std::string>& names) {
    std::vector<MofSource> sources;
    for (const std::string& name : names)
        sources.push_back({name, {}, name});
    MofOptions options;
    options.files = &files;
    return CompileMof(sources, "root\\test", target, options);
}

TEST(MofFiles, AFileThatIsIncludedManyTimesCountsOnce) {
    MemoryFiles files(
        {{"all.mof",
          "#pragma include(\"core/a.mof\")\n#pragma include(\"core/b.mof\")\n"
          "instance of B { K = 1; R = $Base; };"},
         {"core/a.mof", "#pragma include(\"common.mof\")\nclass A : Base { B ref Later; };"},
         {"core/b.mof", "#pragma include(\"common.mof\")\nclass B : A {};"},
         {"core/common.mof",
          "Qualifier Key : boolean = false, Scope(any);\nclass Base { [key] uint32 K; Base ref R; };\n"
          "instance of Base as $Base { K = 0; };"},
         {"more.mof", "#pragma include(\"core/common.mof\")\ninstance of Base { K = 2; R = $Base; };"}});
    MemoryTarget target;
    const MofImport import = ImportFiles(target, files, {"all.mof", "core/b.mof", "more.mof"});
    ASSERT_EQ(FaultIn(import), "");
    EXPECT_THAT(files.read,
                ElementsAre("all.mof", "core/a.mof", "core/common.mof", "core/b.mof", "more.mof"));
    EXPECT_EQ(import.summary.instances, 3U);
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("B.K=1"), "R"), "Base.K=0"s));
    EXPECT_TRUE(SameValue(ValueOf(*target.FindInstance("Base.K=2"), "R"), "Base.K=0"s));
}

// As if the text stood in place of the pragma; in another namespace a file is another one.
TEST(MofFiles, NamespacesGoOnThroughIncludes) {
    MemoryFiles files({{"main.mof", R"(#pragma include("in.mof")
                                       class C {};
                                       #pragma include("a.mof")
                                       #pragma namespace("root\\other")
                                       #pragma include("a.mof"))"},
                       {"in.mof", "class B {};\n#pragma namespace(\"root\\\\in\")"},
                       {"a.mof", "class A {};"}});
    MemoryTarget target;
    ASSERT_EQ(FaultIn(ImportFiles(target, files, {"main.mof"})), "");
    EXPECT_TRUE(target.Class("B"));
    EXPECT_EQ(target.namespaces["root\\in"].classes.size(), 2U);
    EXPECT_EQ(target.namespaces["root\\other"].classes.size(), 1U);
}

// Such a file is the same wherever it is included from; where it ends goes on, and so do its aliases.
TEST(MofFiles, AFileThatNamesItsNamespaceFirstCountsOnce) {
    MemoryFiles files(
        {{"common.mof",
          "#pragma classflags(\"safeupdate\")\n#pragma namespace(\"root\\\\common\")\n"
          "class Shared { [key] string K; Shared ref R; };\ninstance of Shared as $S { K = \"s\"; };"},
         {"x.mof", "#pragma namespace(\"root\\\\X\")\n#pragma include(\"common.mof\")\nclass X {};"},
         {"y.mof",
          "#pragma namespace(\"root\\\\Y\")\n#pragma include(\"common.mof\")\n"
          "instance of Shared { K = \"y\"; R = $S; };"}});
    MemoryTarget target;
    const MofImport import = ImportFiles(target, files, {"x.mof", "y.mof", "common.mof"});
    ASSERT_FALSE(import.fault) << Describe(*import.fault);
    EXPECT_THAT(files.read, ElementsAre("x.mof", "common.mof", "y.mof"));
    EXPECT_EQ(target.namespaces["root\\common"].classes.size(), 2U);
    EXPECT_EQ(import.summary.instances, 2U);
}

TEST(MofFiles, FaultsNameTheFileAndTheLine) {
    std::map<std::string, std::string> files = {{"circle.mof", "class A {};\n#pragma include(\"x/b.mof\")"},
                                                {"x/b.mof", "\n#pragma include(\"c.mof\")"},
                                                {"x/c.mof", "\n\n #pragma include(\"b.mof\")"},
                                                {"self.mof", "#pragma include(\"self.mof\")"},
                                                {"lost.mof", "class A {};\n #pragma include(\"none.mof\")"},
                                                {"outer.mof", "#pragma include(\"x/wrong.mof\")"},
                                                {"x/wrong.mof", "class A {};\nclass B : None {};"},
                                                {"twice.mof", "#pragma include(\"x/a.mof\")\nclass a {};"},
                                                {"x/a.mof", "\n\nclass A {};"}};
    for (int i = 0; i < 1000; ++i)
        files["chain" + std::to_string(i)] = "#pragma include(\"chain" + std::to_string(i + 1) + "\")";
    const std::vector<std::tuple<std::string, std::string>> cases{
        {"circle.mof",
         "x/c.mof:3:18: files cannot include one another in a circle: x/b.mof includes x/c.mof"},
        {"self.mof",
         "self.mof:1:17: files cannot include one another in a circle: self.mof includes self.mof"},
        {"lost.mof", "lost.mof:2:18: there is no file none.mof"},
        {"outer.mof", "x/wrong.mof:2:11: class None is neither declared in this import nor known in"},
        {"twice.mof", "twice.mof:2:7: class a is declared twice in this import, first at x/a.mof:3"},
        {"chain0", "more than 64 deep"},
    };
    MemoryFiles all(std::move(files));
    for (const auto& [name, fragment] : cases) {
        MemoryTarget target;
        EXPECT_THAT(FaultIn(ImportFiles(target, all, {name})), HasSubstr(fragment)) << name;
    }
}

}  // namespace
}  // namespace service
