// mgmtctl as it is typed: each command, its output, its errors and its exit codes.
#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/tools/tool_runner.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* SCHEMA = R"mof(
[abstract, Description("What all have")] class Base {
    [key, Description("Names it")] string INSTANCE_ID;
    string DisplayName;
};
class Policy : Base { [Description("Days")] uint32 KeepDays = 365; string Tags[]; };
class MailPolicy : Policy { boolean Strict; };
[association] class Link { [key] Policy ref From; [key] Policy ref To; uint32 Weight; };
instance of Policy { INSTANCE_ID = "mail"; KeepDays = 30; };
instance of Link { From = "Policy.INSTANCE_ID=\"a\""; To = "Policy.INSTANCE_ID=\"b\""; Weight = 5; };
)mof";

class Tool : public ToolTest {
 protected:
    void SetUp() override { Import(SCHEMA); }
};

TEST_F(Tool, ListsNamespacesOfAnyDepth) {
    Import("#pragma namespace(\"\\\\\\\\.\\\\root\\\\A\\\\B\\\\C\")\nclass X { [key] string K; };");
    const json all = RunJson({"namespaces"});
    for (const char* path : {"\\\\.\\root", "\\\\.\\root\\A\\B\\C", "\\\\.\\root\\Vantrel\\Halvenor"})
        EXPECT_THAT(all, testing::Contains(path));
    EXPECT_EQ(RunJson({"-n", "root/A/B", "namespaces"}), json({"\\\\.\\root\\A\\B", "\\\\.\\root\\A\\B\\C"}));
    EXPECT_THAT(Run({"namespaces"}).out, HasSubstr("\\\\.\\root\\A\\B\n"));
    ExpectRefused({"-n", "root/Nowhere", "namespaces"}, 1, "root\\Nowhere");
}

TEST_F(Tool, ListsClassesWithWhatTheyAre) {
    const json classes = RunJson({"classes"});
    ASSERT_EQ(classes.size(), 4u);
    EXPECT_EQ(classes[0].dump(), R"({"abstract":true,"description":"What all have","keys":["INSTANCE_ID"],)"
                                 R"("name":"Base","superclass":null})");
    EXPECT_EQ(classes[1]["keys"], json({"From", "To"}));
    EXPECT_EQ(classes[2]["superclass"], "Policy");
    EXPECT_EQ(RunJson({"classes", "Policy"}).size(), 1u);
    EXPECT_THAT(Run({"classes"}).out, HasSubstr("MailPolicy  Policy"));
    ExpectRefused({"classes", "Nope"}, 1, "Nope");
}

TEST_F(Tool, DescribesAClassWithItsInheritedProperties) {
    const json described = RunJson({"describe", "mailpolicy"});
    EXPECT_EQ(described["name"], "MailPolicy");
    EXPECT_EQ(described["superclass"], "Policy");
    EXPECT_THAT(
        described["properties"].dump(),
        AllOf(HasSubstr(R"("inheritedFrom":null,"key":false,"name":"Strict",)"),
              HasSubstr(R"({"default":365,"description":"Days","inheritedFrom":"Policy","key":false,)"
                        R"("name":"KeepDays","qualifiers":{"Description":"Days"},"type":"uint32"})")));
    ExpectRefused({"describe", "Nope"}, 1, "there is no class Nope");
    ExpectRefused({"describe", "Policy.INSTANCE_ID=\"mail\""}, 1, "path of an instance");
}

TEST_F(Tool, GetsByClassAndIdOrByAnyPath) {
    const json mail = RunJson({"get", "Policy", "mail"});
    EXPECT_EQ(mail["__RELPATH"], "Policy.INSTANCE_ID=\"mail\"");
    EXPECT_EQ(mail["KeepDays"], 30);
    for (const char* path : {"Policy.INSTANCE_ID=\"mail\"", "policy='MAIL'",
                             "\\\\.\\root\\Vantrel\\Halvenor:Policy.INSTANCE_ID=\"mail\""}) {
        EXPECT_EQ(RunJson({"get", path}), mail) << path;
    }
    EXPECT_EQ(
        RunJson({"get", R"(Link.From="Policy.INSTANCE_ID=\"a\"",To="Policy.INSTANCE_ID=\"b\"")"})["Weight"],
        5);
    EXPECT_THAT(Run({"get", "Policy", "mail"}).out,
                AllOf(HasSubstr("KeepDays     uint32    30\n"),
                      HasSubstr("Tags         string[]  null  (default)\n")));
}

TEST_F(Tool, RefusesToGetWhatIsNotThere) {
    ExpectRefused({"get", "Policy", "nope"}, 1, "nope");
    ExpectRefused({"get", "Nope", "mail"}, 1, "there is no class Nope");
    ExpectRefused({"get", "Policy"}, 1, "that is a class");
    ExpectRefused({"delete", "Policy"}, 1, "that is a class");
    ExpectRefused({"get", "Policy.INSTANCE_ID=\"mail"}, 1, "malformed");
    ExpectRefused({"-n", "root/Nowhere", "get", "Policy", "mail"}, 1, "root\\Nowhere");
    // An instance of a subclass is not one of the class.
    ASSERT_EQ(Run({"set", "MailPolicy", "sub", "--create"}).code, 0);
    ExpectRefused({"get", "Policy", "sub"}, 1, "sub");
}

TEST_F(Tool, SetChangesOneInstanceAndSaysSo) {
    EXPECT_EQ(Run({"set", "Policy", "mail", "KeepDays=31", "DisplayName=Mail"}).out,
              "Policy.INSTANCE_ID=\"mail\" updated, 2 properties set\n");
    EXPECT_EQ(RunJson({"get", "Policy", "mail"})["KeepDays"], 31);
    ExpectRefused({"set", "Policy", "new", "KeepDays=1"}, 1, "--create");
    EXPECT_EQ(RunJson({"set", "Policy", "new", "KeepDays=1", "--create"})["result"], "created");
    EXPECT_EQ(RunJson({"set", "Policy", "new", "KeepDays=2", "--create"})["result"], "updated");
    EXPECT_EQ(RunJson({"get", "Policy", "new"})["KeepDays"], 2);

    ExpectRefused({"set", "Base", "x", "--create"}, 1, "abstract");
    ExpectRefused({"set", "Nope", "x", "--create"}, 1, "there is no class Nope");
    ExpectRefused({"set", "Link", "x", "Weight=1"}, 1, "INSTANCE_ID");
}

TEST_F(Tool, DeletesOnce) {
    EXPECT_EQ(Run({"delete", "Policy", "mail"}).code, 0);
    for (const char* command : {"get", "delete"})
        ExpectRefused({command, "Policy", "mail"}, 1, "mail");
    ExpectRefused({"delete", "Nope", "mail"}, 1, "Nope");
}

TEST_F(Tool, NamesInstancesByAnyId) {
    std::vector<std::string> ids = {
        "a\"b", "c:\\dir\\", "\\\"", "it's\nl\tab 😀漢ä", "Policy=1", "a.b,c", "-1", "--json", " ", "null"};
    ids.emplace_back(238, '"');
    ids.push_back(std::string(5000, 'y') + "\\");
    for (const std::string& id : ids) {
        SCOPED_TRACE(id.substr(0, 20));
        EXPECT_EQ(Run({"set", "Policy", "--create", "--", id, "KeepDays=1"}).code, 0);
        const json made = RunJson({"get", "Policy", "--", id});
        EXPECT_EQ(made["INSTANCE_ID"], id);
        EXPECT_EQ(RunJson({"get", made["__RELPATH"].get<std::string>()}), made);
        EXPECT_EQ(Run({"delete", "Policy", "--", id}).code, 0);
        EXPECT_EQ(Run({"get", "Policy", "--", id}).code, 1);
    }
}

TEST_F(Tool, ATableStaysATable) {
    ASSERT_EQ(Run({"set", "Policy", "mail", "DisplayName=\"a\\nb\\u001b[31m\"", R"(Tags=["x\ny"])"}).code, 0);
    const std::string shown = Run({"get", "Policy", "mail"}).out;
    EXPECT_THAT(shown, AllOf(HasSubstr("a\\nb\\u001b[31m\n"), Not(HasSubstr("\x1b"))));
    // A text is told from null, from nothing and from its quoted form.
    for (const char* value : {"\"null\"", "\"\"", "\"\\\"q\\\"\""}) {
        ASSERT_EQ(Run({"set", "Policy", "mail", std::string("DisplayName=") + value}).code, 0);
        EXPECT_THAT(Run({"get", "Policy", "mail"}).out, HasSubstr(std::string("string    ") + value + "\n"));
    }
}

TEST_F(Tool, ImportsAllOrNothing) {
    const std::string good = WriteFile("good.mof",
                                       "#pragma namespace(\"\\\\\\\\.\\\\root\\\\Vantrel\\\\Halvenor\")\n"
                                       "instance of Policy { INSTANCE_ID = \"imported\"; };\n");
    const std::string bad = WriteFile("bad.mof", "class Half { uint8 A = 300; };\n");
    ExpectRefused({"import", good, bad}, 1, "bad.mof:1:");
    ExpectRefused({"get", "Policy", "imported"}, 1, "imported");

    EXPECT_EQ(RunJson({"import", "--check", good})["stored"], false);
    ExpectRefused({"get", "Policy", "imported"}, 1, "imported");
    EXPECT_EQ(RunJson({"import", good})["declarations"], 1);
    // Without a namespace of its own a text goes where --namespace says.
    const std::string plain = WriteFile("plain.mof", "class Plain { [key] string INSTANCE_ID; };");
    EXPECT_EQ(Run({"-n", "root/Elsewhere", "import", plain}).code, 0);
    EXPECT_EQ(RunJson({"-n", "root/Elsewhere", "classes"})[0]["name"], "Plain");
    ExpectRefused({"describe", "Plain"}, 1, "Plain");

    ExpectRefused({"import", (Folder() / "missing.mof").string()}, 1, "missing.mof");
    ExpectRefused({"import", Folder().string()}, 1, "directory");
    ExpectRefused({"import", "a\nb"}, 2, "line end");
}

TEST_F(Tool, SaysWhatIsWrongWithACommandLine) {
    ExpectRefused({}, 2, "a command is needed");
    ExpectRefused({"bogus"}, 2, "there is no command \"bogus\"");
    ExpectRefused({"reload-event", "bogus"}, 2, "there is no command \"reload-event bogus\"");
    ExpectRefused({"get", "Policy", "mail", "more"}, 2, "more");
    ExpectRefused({"get", "Policy", "\xff\xfe"}, 2, "not valid UTF-8");
    ExpectRefused({"set", "Policy", "mail", "DisplayName=\xc3("}, 2, "not valid UTF-8");
    ExpectRefused({"set", "Policy", "mail", "KeepDays"}, 2, "NAME=VALUE");
    EXPECT_THAT(Run({"--help"}).out, HasSubstr("Examples:"));
    for (const char* command : {"set", "get"})
        EXPECT_THAT(Run({command, "-h"}).out, HasSubstr("Usage: mgmtctl"));
}

TEST_F(Tool, SaysWhenTheOutputCannotBeWritten) {
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "there is no /dev/full";
    const std::string command =
        std::string(MGMTCTL) + " classes > /dev/full 2> " + (Folder() / "err").string();
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 1);
}

TEST_F(Tool, SaysWhenTheStoreOrTheServiceCannotBeUsed) {
    setenv("MGMT_STORE", WriteFile("file", "not a folder").c_str(), 1);
    ExpectRefused({"get", "Policy", "mail"}, 1, "file");
    setenv("MGMT_SERVICE_MODULE", "/nowhere/libmgmt_service.so", 1);
    ExpectRefused({"classes"}, 1, "/nowhere/libmgmt_service.so");
    unsetenv("MGMT_SERVICE_MODULE");
}

class Examples : public ToolTest {};

TEST_F(Examples, StandTogether) {
    const std::string examples = EXAMPLES;
    EXPECT_GE(
        RunJson({"import", examples + "/halvenor.mof", examples + "/halvenor-data.mof"})["declarations"],
        300);
    EXPECT_EQ(RunJson({"get", "RetentionPolicy", "mail"})["Cleanup"]["__CLASS"], "Schedule");
    const json mailbox = RunJson({"get", "Mailbox", "mbx-info-berlin"});
    for (const char* reference : {"Owner", "Volume", "Retention"})
        EXPECT_EQ(Run({"get", mailbox[reference].get<std::string>()}).code, 0) << mailbox[reference];
}

}  // namespace
