// The surroundings of tests of the library with the real service: COM on the thread, and a fresh store whose
// namespace root\Test is the default scope. `schema` is what stands in it, as MOF text.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include <atlbase.h>
#include <objbase.h>
#include <wbemidl.h>

#include "utility/management/mgmt.h"

class RealServiceTest : public ::testing::Test {
 protected:
    explicit RealServiceTest(std::string schema) : m_Schema(std::move(schema)) {}

    void SetUp() override {
        m_Directory = (std::filesystem::temp_directory_path() / "mgmt-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(m_Directory.data()), nullptr);
        setenv("MGMT_STORE", m_Directory.c_str(), 1);
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        CComPtr<IMofCompiler> compiler;
        ASSERT_EQ(compiler.CoCreateInstance(CLSID_MofCompiler), S_OK);
        std::wstring space = L"root\\Test";
        ASSERT_EQ(compiler->CompileBuffer(static_cast<long>(m_Schema.size()),
                                          reinterpret_cast<BYTE*>(m_Schema.data()), space.data(), nullptr,
                                          nullptr, nullptr, 0, 0, 0, nullptr),
                  S_OK);
        MgmtInitialize(L"root\\Test");
    }

    void TearDown() override {
        MgmtUninitialize();
        CoUninitialize();
        std::filesystem::remove_all(m_Directory);
    }

 private:
    std::string m_Schema;
    std::string m_Directory;
};
