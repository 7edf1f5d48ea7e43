// check, backup, limits, an import by force, and a mistyped store.
#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/tool_runner.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr const char* POLICIES = R"(
#pragma namespace("\\\\.\\root\\Vantrel\\Halvenor")
class Policy { [key] string INSTANCE_ID; string Days; };
instance of Policy { INSTANCE_ID = "fits"; Days = "30"; };
instance of Policy { INSTANCE_ID = "not"; Days = "many"; };
)";

class StoreCommands : public ToolTest {};

TEST_F(StoreCommands, AStoreIsCheckedAndCopied) {
    Import(POLICIES);
    const nlohmann::json sound = RunJson({"check"});
    EXPECT_EQ(sound["instances"], 2);
    EXPECT_TRUE(sound["findings"].empty());
    EXPECT_THAT(Run({"check"}).out, HasSubstr("the store is sound"));

    const std::string copy = (Folder() / "copy").string();
    EXPECT_GT(RunJson({"backup", copy})["bytes"], 0);
    ExpectRefused({"backup", copy}, 1, "already");
    ExpectRefused({"backup", ""}, 2, "must not be empty");
    setenv("MGMT_STORE", copy.c_str(), 1);
    EXPECT_EQ(Run({"count", "Policy"}).out, "2\n");

    // In the copy, for it is used by nobody: the last record that has this text.
    std::fstream file(copy + "/data.mdb", std::ios::in | std::ios::out | std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    for (size_t at = bytes.find("many"); at != std::string::npos; at = bytes.find("many", at + 1)) {
        file.seekp(static_cast<std::streamoff>(at));
        file.write("mane", 4);
    }
    file.close();
    const Outcome damaged = Run({"check"});
    EXPECT_EQ(damaged.code, 1);
    EXPECT_THAT(damaged.out, AllOf(HasSubstr("class Policy with the key \"not\""), HasSubstr("findings")));
    EXPECT_THAT(damaged.err, HasSubstr("backup"));
}

TEST_F(StoreCommands, LimitsTellWhatIsInUse) {
    Import(POLICIES);
    for (const nlohmann::json& limit : RunJson({"limits"})) {
        EXPECT_GT(limit["limit"], 0) << limit;
        if (limit["name"] == "properties of a class") {
            EXPECT_EQ(limit["used"], 2);
        }
    }
    EXPECT_THAT(Run({"limits"}).out, HasSubstr("properties of a class"));
}

TEST_F(StoreCommands, AClassIsChangedByForceOnly) {
    Import(POLICIES);
    const std::string changed = WriteFile("changed.mof", R"(
#pragma namespace("\\\\.\\root\\Vantrel\\Halvenor")
class Policy { [key] string INSTANCE_ID; uint32 Days = 5; };
)");
    ExpectRefused({"import", changed}, 1, "2 instances");
    EXPECT_EQ(Run({"import", "--force", changed}).code, 0);
    EXPECT_EQ(RunJson({"get", "Policy", "fits"})["Days"], 30);
    EXPECT_EQ(RunJson({"get", "Policy", "not"})["Days"], 5);
}

TEST_F(StoreCommands, AMistypedStoreIsNotMade) {
    const std::string mistyped = (Folder() / "mistyped").string();
    setenv("MGMT_STORE", mistyped.c_str(), 1);
    for (const std::string command : {"check", "limits", "classes", "export"})
        ExpectRefused({command}, 1, mistyped);
    ExpectRefused({"get", "Policy", "a"}, 1, mistyped);
    EXPECT_FALSE(std::filesystem::exists(mistyped));
}

}  // namespace
