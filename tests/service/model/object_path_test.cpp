#include "service/model/object_path.h"

#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/model/limits.h"
#include "service/model/text.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

ClassPtr OneKey() {
    return Resolved(Declare("Policy", {Key("INSTANCE_ID")}));
}

ClassPtr AllKinds() {
    return Resolved(
        Declare("Kinds", {Key("Text"), Key("Small", CimType::kSint8), Key("Big", CimType::kUint64),
                          Key("On", CimType::kBoolean), Key("When", CimType::kDatetime)}));
}

std::string KeyText(const std::string& path) {
    return std::get<std::string>(ParseObjectPath(path)->keys.at(0).value);
}

TEST(ObjectPath, WholeAndRelativePathsAreRead) {
    const auto whole = ParseObjectPath(R"(\\.\root\A:Class.INSTANCE_ID="k")");
    ASSERT_OK(whole);
    EXPECT_EQ(whole->server, ".");
    EXPECT_EQ(whole->namespace_path, "root\\A");
    EXPECT_EQ(whole->class_name, "Class");
    EXPECT_EQ(whole->keys.at(0).name, "INSTANCE_ID");

    const auto several = ParseObjectPath("C.A=-5,b='x',D=true,E=18446744073709551615");
    ASSERT_OK(several);
    ASSERT_EQ(several->keys.size(), 4U);
    EXPECT_EQ(std::get<int64_t>(several->keys[0].value), -5);
    EXPECT_TRUE(std::get<bool>(several->keys[2].value));
    EXPECT_EQ(std::get<uint64_t>(several->keys[3].value), UINT64_MAX);

    EXPECT_TRUE(ParseObjectPath("root\\A:C")->IsClass());
    EXPECT_FALSE(ParseObjectPath("//host/root/A/B:C=@")->IsClass());
    const std::vector<std::pair<std::string, std::string>> printed{
        {R"(\\.\root\A:Class.INSTANCE_ID="k")", R"(\\.\root\A:Class.INSTANCE_ID="k")"},
        {"C.A=-5,b='x',D=true,E=007", R"(C.A=-5,b="x",D=TRUE,E=7)"},
        {"//host-1.example/root/A/B:C=@", R"(\\host-1.example\root\A\B:C=@)"},
        {"root/Ç_1:__Näme9", "root\\Ç_1:__Näme9"},
        {"C='a\\'b\"c\\\\d\ne'", "C=\"a'b\\\"c\\\\d\ne\""},
        {"C.K=-9223372036854775808", "C.K=-9223372036854775808"},
    };
    for (const auto& [path, text] : printed)
        EXPECT_EQ(PrintObjectPath(*ParseObjectPath(path)), text) << path;
}

TEST(ObjectPath, QuotedTextsMayHoldAnything) {
    EXPECT_EQ(KeyText(R"(C.K="a\"b\\c")"), R"(a"b\c)");
    EXPECT_EQ(KeyText(R"(C.K='a\'b"c')"), R"(a'b"c)");
    EXPECT_EQ(KeyText(R"(C.K="C:\Data\new")"), R"(C:\Data\new)");
    EXPECT_EQ(KeyText("C.K=\"a:b=c,d@e.f g\nh😀\""), "a:b=c,d@e.f g\nh😀");
    EXPECT_EQ(KeyText("C=\"a\0b\""s), "a\0b"s);
    EXPECT_EQ(KeyText("C.K=\"\""), "");
}

TEST(ObjectPath, MalformedPathsAreRefused) {
    std::vector<std::string> wrong{
        "",           "C\0D"s,      "C.K=\"\xFF\"", "\xC3",       "C.K=\"a\" ",
        " C.K=\"a\"", "C .K=\"a\"", "C.K =\"a\"",   "C.K= \"a\"", "C.K=\"a\", L=\"b\""};
    std::istringstream more(
        R"(. = : C. C.K C.K= C= C.K=" C.K="a C.K='a" C.K="a\" C.="a" C=@x C.K=@ C.K=x C.K=-
        C.K=--1 C.K=1x C.K=1.5 C.K=0x10 C.K=truex C.K=18446744073709551616 C.K=-9223372036854775809 1C.K="a"
        C.K="a"b" C.K="a", C.K="a";L="b" C-D :C \root:C root\\A:C root\A:B:C \\:C \\.\:C \\.:C \\.\root\A
        \\.\root\A: \\.\root\A:C.K="a":)");
    for (std::string path; more >> path;)
        wrong.push_back(path);
    for (const std::string& path : wrong)
        EXPECT_EQ(ParseObjectPath(path).code(), WBEM_E_INVALID_OBJECT_PATH) << path;
    EXPECT_THAT(ParseObjectPath("C.K=\"a").status().reason(), HasSubstr("closing"));
}

// A path cut anywhere is a fault, but for the places where what is left is a path of its own.
TEST(ObjectPath, EveryTruncationOfAPathIsRefused) {
    const std::string path = R"(\\.\root\A:Class.Key="a\"b\\",Other='x')";
    const size_t class_from = path.find(':') + 2;
    const size_t class_to = path.find(".Key");
    for (size_t size = 0; size <= path.size(); ++size) {
        const bool is_class = size >= class_from && size <= class_to;
        const bool is_path = is_class || size == path.find(",Other") || size == path.size();
        EXPECT_EQ(ParseObjectPath(path.substr(0, size)).code(), is_path ? 0 : WBEM_E_INVALID_OBJECT_PATH)
            << size;
    }
}

TEST(ObjectPath, NamespacePathsAreReadOrRefused) {
    const auto path = ParseNamespacePath("//./root/A");
    ASSERT_OK(path);
    EXPECT_EQ(path->server, ".");
    EXPECT_EQ(path->path, "root\\A");
    EXPECT_EQ(ParseNamespacePath("root")->path, "root");
    for (const std::string& text : {""s, "\\"s, "\\\\"s, "\\\\."s, "\\\\.\\"s, "\\\\\\root"s, "root\\"s,
                                    "\\root"s, "root\\\\A"s, "root\\A B"s, "root\\\xFF"s, "root:A"s,
                                    "root\0A"s, "root\\" + std::string(kMaxNamespaceBytes, 'n')}) {
        EXPECT_EQ(ParseNamespacePath(text).code(), WBEM_E_INVALID_NAMESPACE) << text;
    }
}

TEST(ObjectPath, KeysAreFoundInAnyOrderAndCase) {
    const ClassPtr kinds = AllKinds();
    const auto key = [&](const char* path) { return KeyOf(*kinds, *ParseObjectPath(path)); };
    const auto one = key("Kinds.Text=\"Ä\",Small=-1,Big=7,On=TRUE,When=\"2024*\"");
    ASSERT_OK(one);
    EXPECT_EQ(*one, *key("KINDS.when='2024*',ON=1,big=007,SMALL=-1,text=\"ä\""));
    EXPECT_NE(*one, *key("Kinds.Text=\"Ä\",Small=-1,Big=7,On=FALSE,When=\"2024*\""));

    for (const char* wrong :
         {"Kinds.Text=\"a\"", "Kinds=\"a\"", "Kinds=@", "Kinds.Text=1,Small=1,Big=1,On=TRUE,When=\"\"",
          "Kinds.Text=\"a\",Small=\"1\",Big=1,On=TRUE,When=\"\"",
          "Kinds.Text=\"a\",Small=1,Big=1,On=2,When=\"\"", "Kinds.Text=\"a\",Small=1,Big=1,On=TRUE,Then=\"\"",
          "Kinds.Text=\"a\",Text=\"a\",Text=\"a\",Text=\"a\",Text=\"a\""}) {
        EXPECT_EQ(key(wrong).code(), WBEM_E_INVALID_OBJECT_PATH) << wrong;
    }
    EXPECT_OK(KeyOf(*OneKey(), *ParseObjectPath("Policy='x'")));

    ClassDeclaration only = Declare("Only", {});
    only.qualifiers.push_back(Flag("Singleton"));
    const ClassPtr singleton = Resolved(only);
    EXPECT_OK(KeyOf(*singleton, *ParseObjectPath("Only=@")));
    EXPECT_EQ(KeyOf(*singleton, *ParseObjectPath("Only=\"x\"")).code(), WBEM_E_INVALID_OBJECT_PATH);
    EXPECT_EQ(*RelativePathOf(Instance(singleton)), "Only=@");
}

TEST(ObjectPath, KeysHaveALimitAndMustHaveAValue) {
    Instance instance(OneKey());
    EXPECT_EQ(KeyOf(instance).code(), WBEM_E_ILLEGAL_NULL);
    EXPECT_THAT(KeyOf(instance).status().reason(), HasSubstr("Policy.INSTANCE_ID"));
    EXPECT_EQ(RelativePathOf(instance).code(), WBEM_E_ILLEGAL_NULL);

    ASSERT_OK(SetProperty(instance, "INSTANCE_ID", std::string(kMaxKeyBytes, 'k')));
    EXPECT_OK(KeyOf(instance));
    const std::string longer(kMaxKeyBytes + 1, 'k');
    ASSERT_OK(SetProperty(instance, "INSTANCE_ID", longer));
    EXPECT_EQ(KeyOf(instance).code(), WBEM_E_INVALID_OBJECT_PATH);
    EXPECT_EQ(KeyOf(*instance.Class(), *ParseObjectPath("Policy=" + QuoteForPath(longer))).code(),
              WBEM_E_INVALID_OBJECT_PATH);
}

std::string RandomText(std::mt19937& random) {
    static const std::vector<std::string> pieces = {
        "a", "B", "\"",   "\\",   "'", "\n",   "\0"s,          "😀", "é", ":", ".", "=", ",",
        "@", " ", "\\\"", "\\\\", "/", "\x01", "\xEF\xBF\xBF", "%", "_"};
    std::string text;
    for (size_t count = random() % 8; count > 0; --count)
        text += pieces[random() % pieces.size()];
    return text;
}

// What is printed reads back as the same instance, and different instances never share a key.
TEST(ObjectPath, PrintingAndParsingAreInverse) {
    const ClassPtr kinds = AllKinds();
    std::mt19937 random(7);
    std::set<std::pair<std::string, std::string>> keys_and_identities;
    for (int round = 0; round < 20'000; ++round) {
        const std::string text = RandomText(random);
        const auto small = static_cast<int64_t>(random() % 256) - 128;
        const uint64_t big = random() % 3 ? random() % 3 : UINT64_MAX - random() % 3;
        const bool on = random() % 2 != 0;
        Instance instance(kinds);
        ASSERT_OK(SetProperty(instance, "Text", text));
        ASSERT_OK(SetProperty(instance, "Small", small));
        ASSERT_OK(SetProperty(instance, "Big", big));
        ASSERT_OK(SetProperty(instance, "On", on));
        ASSERT_OK(SetProperty(instance, "When", "20240229235959.000000+060"s));

        const auto printed = RelativePathOf(instance);
        ASSERT_OK(printed);
        const auto parsed = ParseObjectPath(*printed);
        ASSERT_OK(parsed) << *printed;
        ASSERT_EQ(PrintObjectPath(*parsed), *printed);
        ASSERT_EQ(KeyText(*printed), text);
        const auto key = KeyOf(instance);
        ASSERT_OK(key);
        ASSERT_EQ(*KeyOf(*kinds, *parsed), *key) << *printed;
        keys_and_identities.emplace(
            *key, Fold(text) + "|" + std::to_string(small) + "|" + std::to_string(big) + (on ? "|1" : "|0"));
    }
    std::set<std::string> keys, identities;
    for (const auto& [key, identity] : keys_and_identities) {
        EXPECT_TRUE(keys.insert(key).second) << "two instances with one key";
        EXPECT_TRUE(identities.insert(identity).second) << "one instance with two keys";
    }
}

ObjectPath RandomPath(std::mt19937& random) {
    ObjectPath path;
    if (random() % 2) path.namespace_path = random() % 2 ? "root\\A" : "root\\B\\Ç_1";
    if (path.namespace_path && random() % 2) path.server = random() % 2 ? "." : "host-1.example";
    path.class_name = random() % 2 ? "Class" : "__Näme9";
    path.is_singleton = random() % 5 == 0;
    const size_t count = path.is_singleton ? 0 : random() % 4;
    for (size_t i = 0; i < count; ++i) {
        KeyBinding& key = path.keys.emplace_back();
        if (count > 1 || random() % 2) key.name = "K" + std::to_string(i);
        switch (random() % 4) {
            case 0:
                key.value = RandomText(random);
                break;
            case 1:
                key.value = static_cast<int64_t>(random()) * (random() % 2 ? 1 : INT64_MIN / UINT32_MAX);
                break;
            case 2:
                key.value = UINT64_MAX - random();
                break;
            default:
                key.value = random() % 2 == 0;
        }
    }
    return path;
}

TEST(ObjectPath, EveryPathReadsBackAsItWasPrinted) {
    std::mt19937 random(5);
    for (int round = 0; round < 20'000; ++round) {
        const ObjectPath path = RandomPath(random);
        const std::string printed = PrintObjectPath(path);
        const auto parsed = ParseObjectPath(printed);
        ASSERT_OK(parsed) << printed;
        ASSERT_EQ(PrintObjectPath(*parsed), printed);
        ASSERT_EQ(std::tie(parsed->server, parsed->namespace_path, parsed->class_name, parsed->is_singleton),
                  std::tie(path.server, path.namespace_path, path.class_name, path.is_singleton));
        ASSERT_EQ(parsed->keys.size(), path.keys.size()) << printed;
        for (size_t i = 0; i < path.keys.size(); ++i) {
            ASSERT_EQ(parsed->keys[i].name, path.keys[i].name);
            ASSERT_EQ(parsed->keys[i].value, path.keys[i].value) << printed;
        }
    }
}

// Two texts that shift a character over the border between two keys must not meet.
TEST(ObjectPath, NeighbouringKeysDoNotRunTogether) {
    const ClassPtr pair = Resolved(Declare("Pair", {Key("A"), Key("B")}));
    std::set<std::string> keys;
    const std::vector<std::string> texts = {"",        "\0"s, "\0\0"s, "\0\x01"s, "\x01",
                                            "\0\x02"s, "a",   "a\0"s,  "\0a"s};
    for (const std::string& a : texts) {
        for (const std::string& b : texts) {
            Instance instance(pair);
            ASSERT_OK(SetProperty(instance, "A", a));
            ASSERT_OK(SetProperty(instance, "B", b));
            keys.insert(*KeyOf(instance));
        }
    }
    EXPECT_EQ(keys.size(), texts.size() * texts.size());
}

}  // namespace
}  // namespace service
