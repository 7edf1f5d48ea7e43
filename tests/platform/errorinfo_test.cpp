#include <gtest/gtest.h>

#include <string>
#include <thread>

#include <atlbase.h>
#include <errorinfo.h>
#include <oleauto.h>
#include <wbemstatus.h>

#include "tests/platform/automation_values.h"

namespace {

std::wstring DescriptionOf(IErrorInfo* info) {
    CComBSTR text;
    EXPECT_EQ(info->GetDescription(&text), S_OK);
    return text.m_str == nullptr ? L"(null)" : Units(text);
}

HRESULT CodeOf(IErrorInfo* info) {
    CComPtr<IErrorCode> error_code;
    EXPECT_EQ(info->QueryInterface(IID_PPV_ARGS(&error_code)), S_OK);
    HRESULT code = S_OK;
    EXPECT_EQ(error_code->GetCode(&code), S_OK);
    return code;
}

TEST(ErrorInfoTest, ReportIsTakenOnceByItsThread) {
    wchar_t sentence[] = L"There is no class \"A\".";
    ReportError(E_FAIL, L"An earlier fault.");
    ReportError(WBEM_E_NOT_FOUND, sentence);
    sentence[0] = L'X';
    std::jthread([] {
        IErrorInfo* none = nullptr;
        EXPECT_EQ(GetErrorInfo(0, &none), S_FALSE);
        // Left behind: the thread's end frees it.
        ReportError(E_ABORT, L"theirs");
    }).join();

    CComPtr<IErrorInfo> info;
    ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
    EXPECT_EQ(DescriptionOf(info), L"There is no class \"A\".");
    EXPECT_EQ(CodeOf(info), WBEM_E_NOT_FOUND);
    IErrorInfo* second = info;
    EXPECT_EQ(GetErrorInfo(0, &second), S_FALSE);
    EXPECT_EQ(second, nullptr);

    ReportError(E_ABORT, nullptr);
    CComPtr<IErrorInfo> silent;
    ASSERT_EQ(GetErrorInfo(0, &silent), S_OK);
    EXPECT_EQ(DescriptionOf(silent), L"(null)");
}

TEST(ErrorInfoTest, ExhaustedMemoryNeverLeavesAnEarlierReport) {
    FailEachAllocation([] {
        {
            const doubles::SparedAllocations spared;
            ReportError(E_ABORT, L"earlier");
        }
        ReportError(WBEM_E_NOT_FOUND, L"later");
        CComPtr<IErrorInfo> info;
        if (GetErrorInfo(0, &info) != S_OK) return;
        EXPECT_EQ(CodeOf(info), WBEM_E_NOT_FOUND);
        CComBSTR text;
        if (SUCCEEDED(info->GetDescription(&text)) && text != nullptr) {
            EXPECT_STREQ(text, L"later");
        }
    });
}

TEST(ErrorInfoTest, ObjectTellsWhatItWasGiven) {
    CComPtr<ICreateErrorInfo> create;
    ASSERT_EQ(CreateErrorInfo(&create), S_OK);
    wchar_t source[] = L"source", help[] = L"help";
    for (wchar_t* const text : {source, static_cast<wchar_t*>(nullptr)})
        EXPECT_EQ(create->SetSource(text), S_OK);
    create->SetGUID(IID_IErrorInfo);
    create->SetHelpFile(help);
    create->SetHelpContext(7);
    CComPtr<IErrorInfo> info;
    ASSERT_EQ(create.QueryInterface(&info), S_OK);
    GUID guid = {};
    DWORD context = 0;
    CComBSTR help_file, no_source;
    EXPECT_TRUE(info->GetGUID(&guid) == S_OK && guid == IID_IErrorInfo);
    EXPECT_TRUE(info->GetHelpContext(&context) == S_OK && context == 7);
    EXPECT_TRUE(info->GetHelpFile(&help_file) == S_OK && help_file == L"help");
    EXPECT_TRUE(info->GetSource(&no_source) == S_OK && !no_source);
    EXPECT_EQ(info->GetDescription(nullptr), E_INVALIDARG);
    CComPtr<IUnknown> from_create, from_info;
    EXPECT_EQ(create.QueryInterface(&from_create), info.QueryInterface(&from_info));
    EXPECT_EQ(from_create.p, from_info.p) << "one object whichever of its interfaces is asked";
    CComPtr<IClassFactory> none;
    EXPECT_EQ(info.QueryInterface(&none), E_NOINTERFACE);
}

TEST(ErrorInfoTest, ThreadHoldsOneReference) {
    CComPtr<ICreateErrorInfo> create;
    ASSERT_EQ(CreateErrorInfo(&create), S_OK);
    CComPtr<IErrorInfo> info;
    ASSERT_EQ(create.QueryInterface(&info), S_OK);
    const auto references = [&info] {
        info.p->AddRef();
        return info.p->Release();
    };
    EXPECT_EQ(SetErrorInfo(0, info), S_OK);
    EXPECT_EQ(SetErrorInfo(0, info), S_OK) << "set again over itself";
    EXPECT_EQ(references(), 3U);
    EXPECT_EQ(SetErrorInfo(1, nullptr), E_INVALIDARG);
    CComPtr<IErrorInfo> taken;
    EXPECT_EQ(GetErrorInfo(1, &taken), E_INVALIDARG);
    ASSERT_EQ(GetErrorInfo(0, &taken), S_OK);
    EXPECT_EQ(references(), 3U) << "handed over, not copied";
    EXPECT_EQ(SetErrorInfo(0, taken), S_OK);
    EXPECT_EQ(SetErrorInfo(0, nullptr), S_OK);
    EXPECT_EQ(references(), 3U);
}

}  // namespace
