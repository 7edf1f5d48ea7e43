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
    return text.m_str == nullptr ? std::wstring(L"(null)") : std::wstring(text.m_str, text.Length());
}

HRESULT CodeOf(IErrorInfo* info) {
    CComPtr<IErrorCode> error_code;
    EXPECT_EQ(info->QueryInterface(IID_PPV_ARGS(&error_code)), S_OK);
    HRESULT code = S_OK;
    EXPECT_EQ(error_code->GetCode(&code), S_OK);
    return code;
}

class ErrorInfoTest : public testing::Test {
 protected:
    void TearDown() override { SetErrorInfo(0, nullptr); }
};

TEST_F(ErrorInfoTest, ReportIsTakenOnce) {
    wchar_t sentence[] = L"There is no class \"A\".";
    ReportError(E_FAIL, L"An earlier fault.");
    ReportError(WBEM_E_NOT_FOUND, sentence);
    sentence[0] = L'X';

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
    EXPECT_EQ(CodeOf(silent), E_ABORT);
}

TEST_F(ErrorInfoTest, ExhaustedMemoryNeverLeavesAnEarlierReport) {
    FailEachAllocation([] {
        {
            const doubles::SparedAllocations spared;
            ReportError(E_ABORT, L"earlier");
        }
        ReportError(WBEM_E_NOT_FOUND, L"later");
        CComPtr<IErrorInfo> info;
        if (GetErrorInfo(0, &info) != S_OK) return;
        EXPECT_EQ(CodeOf(info), WBEM_E_NOT_FOUND);
        BSTR text = nullptr;
        if (SUCCEEDED(info->GetDescription(&text)) && text != nullptr) {
            EXPECT_STREQ(text, L"later");
        }
        SysFreeString(text);
    });
}

TEST_F(ErrorInfoTest, BelongsToTheThread) {
    ReportError(E_FAIL, L"mine");
    std::jthread([] {
        IErrorInfo* info = nullptr;
        EXPECT_EQ(GetErrorInfo(0, &info), S_FALSE);
        // Left behind: the thread's end frees it.
        ReportError(E_ABORT, L"theirs");
    }).join();
    CComPtr<IErrorInfo> info;
    ASSERT_EQ(GetErrorInfo(0, &info), S_OK);
    EXPECT_EQ(DescriptionOf(info), L"mine");
}

TEST_F(ErrorInfoTest, ObjectTellsWhatItWasGiven) {
    CComPtr<ICreateErrorInfo> create;
    ASSERT_EQ(CreateErrorInfo(&create), S_OK);
    wchar_t source[] = L"source";
    wchar_t help[] = L"help";
    EXPECT_EQ(create->SetGUID(IID_IErrorInfo), S_OK);
    EXPECT_EQ(create->SetSource(source), S_OK);
    EXPECT_EQ(create->SetSource(nullptr), S_OK);
    EXPECT_EQ(create->SetHelpFile(help), S_OK);
    EXPECT_EQ(create->SetHelpContext(7), S_OK);

    CComPtr<IErrorInfo> info;
    ASSERT_EQ(create.QueryInterface(&info), S_OK);
    GUID guid = {};
    DWORD context = 0;
    CComBSTR text;
    EXPECT_EQ(info->GetGUID(&guid), S_OK);
    EXPECT_EQ(guid, IID_IErrorInfo);
    EXPECT_EQ(info->GetHelpContext(&context), S_OK);
    EXPECT_EQ(context, 7U);
    EXPECT_EQ(info->GetHelpFile(&text), S_OK);
    EXPECT_EQ(std::wstring(text), L"help");
    text.Empty();
    EXPECT_EQ(info->GetSource(&text), S_OK);
    EXPECT_EQ(text.m_str, nullptr);
    EXPECT_EQ(info->GetDescription(nullptr), E_INVALIDARG);

    // One object whichever of its interfaces is asked.
    CComPtr<IUnknown> from_create;
    CComPtr<IUnknown> from_info;
    ASSERT_EQ(create.QueryInterface(&from_create), S_OK);
    ASSERT_EQ(info.QueryInterface(&from_info), S_OK);
    EXPECT_EQ(from_create.p, from_info.p);
    CComPtr<IClassFactory> none;
    EXPECT_EQ(info.QueryInterface(&none), E_NOINTERFACE);
}

TEST_F(ErrorInfoTest, ThreadHoldsOneReference) {
    CComPtr<ICreateErrorInfo> create;
    ASSERT_EQ(CreateErrorInfo(&create), S_OK);
    CComPtr<IErrorInfo> info;
    ASSERT_EQ(create.QueryInterface(&info), S_OK);
    const auto references = [&info] {
        info.p->AddRef();
        return info.p->Release();
    };
    EXPECT_EQ(references(), 2U);
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
