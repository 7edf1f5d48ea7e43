// Schema files on their way into the store.
#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

    HRESULT ImportFiles(const std::string& list, WBEM_COMPILE_STATUS_INFO* info = nullptr) const {
        CComPtr<IMofCompiler> compiler;
        EXPECT_CODE(S_OK, compiler.CoCreateInstance(CLSID_MofCompiler));
        std::wstring names(list.begin(), list.end());
        std::wstring space(kNamespace);
        return compiler->CompileFile(names.data(), space.data(), nullptr, nullptr, nullptr, 0, 0, 0, info);
    }

    HRESULT CodeOf(const wchar_t* path) const {
        ObjectPointer object;
        return GetObject(path, object);
    }
};

TEST_F(MofImportTest, AnImportLandsWholeOrNotAtAll) {
    ASSERT_CODE(S_OK, Import("class Old { [key] string ID; uint8 N = 1; };"));
    WBEM_COMPILE_STATUS_INFO info{};
    EXPECT_TRUE(FAILED(Import(R"(class Old { [key] string ID; uint8 N = 2; };
class New { [key] string ID; };
instance of New { ID = "a"; };
#pragma namespace("\\\\.\\root\\Made")
class Other { [key] string ID; };
instance of New { ID = "b" };
)",
                              &info)));
    EXPECT_EQ(info.FirstLine, 6);
    EXPECT_THAT(TakeReason(), HasSubstr(":6:"));
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
    EXPECT_EQ(Show(Get(L"Policy=\"a\""), L"Days"), "I4 1");
    EXPECT_EQ(Show(Get(L"Sub=\"s\""), L"Tags"), "BSTR[] a|(null)");
    EXPECT_EQ(Show(Get(L"Sub=\"s\""), L"Parent"), "BSTR Policy.ID=\"a\"");
    EXPECT_CODE(WBEM_E_ALREADY_EXISTS, ImportInto(kNamespace, schema, nullptr, 0, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_ALREADY_EXISTS, ImportInto(kNamespace, schema, nullptr, 0, 0, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, ImportInto(kNamespace, schema, nullptr, 0, 128));
}

TEST_F(MofImportTest, CheckingStoresNothing) {
    ServicesPointer connected;
    WBEM_COMPILE_STATUS_INFO info{};
    EXPECT_CODE(S_OK, ImportInto(kNamespace, "class A { [key] string ID; };", &info, WBEM_FLAG_CHECK_ONLY));
    EXPECT_EQ(info.ObjectNum, 1);
    EXPECT_CODE(WBEM_E_INVALID_NAMESPACE, Connect(kNamespace, connected));
    EXPECT_TRUE(FAILED(ImportInto(kNamespace, "class A { [key] string ID };", &info, WBEM_FLAG_CHECK_ONLY)));
    EXPECT_EQ(info.FirstLine, 1);
    EXPECT_FALSE(std::filesystem::exists(store)) << "not even a store";
}

TEST_F(MofImportTest, FilesOfOneImportMayReferToEachOther) {
    const std::string sub = WriteFile("sub.mof", "class Sub : Base {};\ninstance of Sub { ID = \"s\"; };\n");
    const std::string base = WriteFile("base.mof", "class Base { [key] string ID; };\n");
    EXPECT_TRUE(FAILED(ImportFiles(sub)));
    EXPECT_CODE(S_OK, ImportFiles(sub + "\n" + base)) << TakeReason();
    ASSERT_CODE(S_OK, Connect(kNamespace, services));
    EXPECT_TRUE(Get(L"Sub=\"s\"").p);

    const std::string wrong = WriteFile("wrong.mof", "class More : Base {};\n\n  class { };\n");
    EXPECT_TRUE(FAILED(ImportFiles(base + "\n" + wrong)));
    EXPECT_THAT(TakeReason(), HasSubstr("wrong.mof:3:"));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"More"));
    EXPECT_CODE(WBEM_E_NOT_FOUND, ImportFiles(directory.path() + "/none.mof"));
    EXPECT_THAT(TakeReason(), HasSubstr("none.mof"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, ImportFiles(directory.path()));
}

TEST_F(MofImportTest, IncludedFilesAreFoundBesideTheFileThatNamesThem) {
    std::filesystem::create_directory(directory.path() + "/core");
    const std::string all =
        WriteFile("all.mof", "#pragma include(\"core\\\\a.mof\")\n#pragma include(\"core/b.mof\")\n");
    WriteFile("core/a.mof", "#pragma include(\"../common.mof\")\nclass A : Base {};\n");
    WriteFile("core/b.mof", "#pragma include(\"../core/../common.mof\")\nclass B : A {};\n");
    WriteFile("common.mof", "class Base { [key] string ID; };\n");
    EXPECT_CODE(S_OK, ImportFiles(all + "\n" + directory.path() + "/core/b.mof")) << TakeReason();
    WriteFile("core/b.mof", "#pragma include(\"../all.mof\")");
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, ImportFiles(all));
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("core/b.mof:1:"), HasSubstr("all.mof includes")));
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
    EXPECT_CODE(S_OK,
                Import("#pragma deleteinstance(\"A.ID=\\\"a\\\"\", FAIL)\n#pragma deleteclass(\"A\", FAIL)"));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"A"));
    ASSERT_CODE(S_OK, Import(schema));
    ASSERT_CODE(S_OK, Import("#pragma classflags(\"forceupdate\")\nclass A { [key] string ID; };"));
    EXPECT_TRUE(Get(L"A=\"a\"").p);
    EXPECT_CODE(S_OK, ImportInto(kNamespace, "#pragma deleteclass(\"A\", FAIL)", nullptr, 0,
                                 WBEM_FLAG_UPDATE_FORCE_MODE));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"A"));
}

TEST_F(MofImportTest, WhatInstancesHoldIsKept) {
    ASSERT_CODE(S_OK,
                Import("class A { [key] string ID; string V; }; instance of A { ID = \"a\"; V = \"v\"; };"));
    EXPECT_CODE(WBEM_E_CLASS_HAS_INSTANCES, Import("class A { [key] string ID; uint8 V; };"));
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("A"), HasSubstr("V")));
    EXPECT_CODE(S_OK, Import("class A { [key] string ID; string V; uint8 More = 3; };"));
    EXPECT_EQ(Show(Get(L"A=\"a\""), L"V"), "BSTR v");
    EXPECT_EQ(Show(Get(L"A=\"a\""), L"More"), "UI1 3");
}

}  // namespace
