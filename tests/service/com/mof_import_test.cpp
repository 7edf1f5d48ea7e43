// Schema files on their way into the store, and how a compilation tells how far it has come.
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mofprogress.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

class MofImportTest : public ServiceClient {
 protected:
    std::string WriteFile(const std::string& name, const std::string& text) const {
        const std::string path = directory.path() + "/" + name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    static HRESULT ImportFiles(const std::string& list) {
        std::wstring names(list.begin(), list.end()), space(kNamespace);
        return Compiler()->CompileFile(names.data(), space.data(), nullptr, nullptr, nullptr, 0, 0, 0,
                                       nullptr);
    }
};

TEST_F(MofImportTest, AnImportLandsWholeOrNotAtAll) {
    ASSERT_CODE(S_OK, Import("class Old { [key] string ID; uint8 N = 1; };"));
    WBEM_COMPILE_STATUS_INFO info{};
    EXPECT_TRUE(
        FAILED(Import("class Old { [key] string ID; uint8 N = 2; }; class New { [key] string ID; };\n"
                      "instance of New { ID = \"a\"; };\n"
                      "#pragma namespace(\"\\\\\\\\.\\\\root\\\\Made\")\n"
                      "class Other { [key] string ID; };\n"
                      "instance of New { ID = \"b\" };",
                      &info)));
    EXPECT_EQ(info.FirstLine, 5);
    EXPECT_THAT(TakeReason(), HasSubstr(":5:"));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"New"));
    EXPECT_EQ(Show(Get(L"Old"), L"N"), "UI1 1");
    ServicesPointer made;
    EXPECT_CODE(WBEM_E_INVALID_NAMESPACE, Connect(L"root\\Made", made));

    // The same when what is wrong is found by the store, not by the parser.
    EXPECT_CODE(WBEM_E_ILLEGAL_NULL, Import("class New { [key] string ID; }; instance of New { };"));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"New"));
}

TEST_F(MofImportTest, TheSameImportTwiceChangesNothing) {
    const std::string schema = R"(
[Description("d")] class Policy { [key, read] string ID; uint32 Days = 7; string Tags[] = {"a", NULL}; };
class Sub : Policy { Policy ref Parent; };
instance of Policy { ID = "a"; Days = 1; };
instance of Sub as $S { ID = "s"; Parent = "Policy.ID=\"a\""; };
)";
    WBEM_COMPILE_STATUS_INFO info{};
    ASSERT_CODE(S_OK, Import(schema, &info)) << TakeReason();
    EXPECT_EQ(info.ObjectNum, 4);
    EXPECT_CODE(S_OK, info.hRes);
    EXPECT_CODE(S_OK, Import(schema)) << "with instances there";
    EXPECT_EQ(Show(Get(L"Sub=\"s\""), L"Tags"), "BSTR[] a|(null)");
    EXPECT_EQ(Show(Get(L"Sub=\"s\""), L"Parent"), "BSTR Policy.ID=\"a\"");
    EXPECT_CODE(WBEM_E_ALREADY_EXISTS, ImportInto(kNamespace, schema, nullptr, 0, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_ALREADY_EXISTS, ImportInto(kNamespace, schema, nullptr, 0, 0, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, ImportInto(kNamespace, schema, nullptr, 0, 128));
}

TEST_F(MofImportTest, CheckingStoresNothing) {
    WBEM_COMPILE_STATUS_INFO info{};
    EXPECT_CODE(S_OK, ImportInto(kNamespace, "class A { [key] string ID; };", &info, WBEM_FLAG_CHECK_ONLY));
    EXPECT_EQ(info.ObjectNum, 1);
    EXPECT_TRUE(FAILED(ImportInto(kNamespace, "class A { [key] string ID };", &info, WBEM_FLAG_CHECK_ONLY)));
    EXPECT_EQ(info.FirstLine, 1);
    EXPECT_FALSE(std::filesystem::exists(store)) << "not even a store";
}

TEST_F(MofImportTest, IncludedFilesAreFoundBesideTheFileThatNamesThem) {
    std::filesystem::create_directory(directory.path() + "/core");
    const std::string all =
        WriteFile("all.mof", "#pragma include(\"core\\\\a.mof\")\n#pragma include(\"core/b.mof\")\n");
    WriteFile("core/a.mof", "#pragma include(\"../common.mof\")\nclass A : Base {};\n");
    WriteFile("core/b.mof", "#pragma include(\"../core/../common.mof\")\nclass B : A {};\n");
    WriteFile("common.mof", "class Base { [key] string ID; };\n");
    EXPECT_CODE(S_OK, ImportFiles(all + "\n" + directory.path() + "/core/b.mof")) << TakeReason();
    WriteFile("core/b.mof", "\n#pragma include(\"none.mof\")");
    EXPECT_CODE(WBEM_E_NOT_FOUND, ImportFiles(all));
    EXPECT_THAT(TakeReason(),
                AllOf(HasSubstr("core/b.mof:2:"), HasSubstr("core/none.mof cannot be included")));
    WriteFile("core/b.mof", "#pragma include(\"/dev/zero\")");
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, ImportFiles(all));
}

TEST_F(MofImportTest, DeletionsAndForce) {
    const std::string schema =
        "class A { [key] string ID; string V; }; instance of A { ID = \"a\"; V = \"v\"; };";
    ASSERT_CODE(S_OK, Import(schema));
    EXPECT_CODE(WBEM_E_CLASS_HAS_INSTANCES, Import("#pragma deleteclass(\"A\", FAIL)"));
    WBEM_COMPILE_STATUS_INFO info{};
    EXPECT_CODE(S_OK, Import("#pragma deleteinstance(\"A.ID=\\\"a\\\"\", FAIL)\n"
                             "#pragma deleteinstance(\"A.ID=\\\"none\\\"\", NOFAIL)\n"
                             "#pragma deleteclass(\"A\", FAIL)\n"
                             "Qualifier Q : string, Scope(class);",
                             &info));
    EXPECT_EQ(info.ObjectNum, 3) << "without the one that deleted nothing";
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"A"));
    ASSERT_CODE(S_OK, Import(schema));
    ASSERT_CODE(S_OK, Import("#pragma classflags(\"forceupdate\")\nclass A { [key] string ID; };"));
    EXPECT_TRUE(Get(L"A=\"a\"").p);
    EXPECT_CODE(S_OK, ImportInto(kNamespace, "#pragma deleteclass(\"A\", FAIL)", nullptr, 0,
                                 WBEM_FLAG_UPDATE_FORCE_MODE));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"A"));
}

// Lives as long as the test: references do not count.
class Listener final : public IMofProgress {
 public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE Warning(LPCWSTR sentence) override {
        warnings.emplace_back(sentence);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Progress(ULONGLONG done, ULONGLONG total) override {
        heard.emplace_back(done, total);
        if (on_progress) on_progress();
        return S_OK;
    }

    std::function<void()> on_progress;
    ULONG references = 1;
    std::vector<std::pair<ULONGLONG, ULONGLONG>> heard;
    std::vector<std::wstring> warnings;
};

class MofProgress : public ServiceClient {
 protected:
    MofProgress() { EXPECT_CODE(S_OK, compiler.QueryInterface(&source)); }

    Listener listener;
    CComPtr<IMofCompiler> compiler = Compiler();
    CComPtr<IMofProgressSource> source;
};

TEST_F(MofProgress, IsToldNowAndThenAndAtTheEnd) {
    std::string text = "class A { [key] string ID; };\n";
    for (int i = 0; i < 2500; ++i)
        text += "instance of A { ID = \"" + std::to_string(i) + "\"; };\n";
    ASSERT_CODE(S_OK, source->SetProgress(&listener));
    ASSERT_CODE(S_OK, Compile(*compiler, kNamespace, text));
    ASSERT_GT(listener.heard.size(), 2u);
    ULONGLONG before = 0;
    for (const auto& [done, total] : listener.heard) {
        EXPECT_GT(done, before);
        EXPECT_EQ(total, 2501u);
        before = done;
    }
    EXPECT_EQ(before, 2501u);

    ASSERT_CODE(S_OK, Compile(*compiler, kNamespace, "#pragma locale(1)\n#pragma locale(2)"));
    EXPECT_EQ(listener.warnings, std::vector<std::wstring>{L"buffer:1:9: #pragma locale has no effect here"});

    // Of what fails the end is never told.
    listener.heard.clear();
    EXPECT_CODE(WBEM_E_ILLEGAL_NULL, Compile(*compiler, kNamespace, "instance of A { };"));
    EXPECT_TRUE(listener.heard.empty());

    EXPECT_CODE(S_OK, source->SetProgress(nullptr));
    EXPECT_EQ(listener.references, 1u);
    EXPECT_CODE(S_OK, Compile(*compiler, kNamespace, "instance of A { ID = \"more\"; };"));
    EXPECT_TRUE(listener.heard.empty());
}

// The thread holds the store's lock for writing: it must not wait for it.
TEST_F(MofProgress, WhoIsToldMustNotWrite) {
    ASSERT_EQ(Import("class A { [key] string ID; };"), S_OK);
    int refused = 0;
    listener.on_progress = [&] {
        const ObjectPointer instance = Spawn(L"A");
        PutValue(instance, L"ID", L"within");
        if (PutInstance(instance) == WBEM_E_UNEXPECTED) ++refused;
        source->SetProgress(nullptr);
    };
    source->SetProgress(&listener);
    EXPECT_EQ(Compile(*compiler, kNamespace, "instance of A { ID = \"imported\"; };"), S_OK);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(Show(Get(L"A.ID=\"imported\""), L"ID"), "BSTR imported");
    EXPECT_EQ(listener.references, 1U);
}

}  // namespace
