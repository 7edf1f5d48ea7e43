// How a compilation tells how far it has come.
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <mofprogress.h>

#include "tests/service/com/service_client.h"

namespace {

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
    static HRESULT Compile(IMofCompiler& compiler, std::string text) {
        std::wstring space(kNamespace);
        return compiler.CompileBuffer(static_cast<long>(text.size()), reinterpret_cast<BYTE*>(text.data()),
                                      space.data(), nullptr, nullptr, nullptr, 0, 0, 0, nullptr);
    }
};

TEST_F(MofProgress, IsToldNowAndThenAndAtTheEnd) {
    std::string text = "class A { [key] string ID; };\n";
    for (int i = 0; i < 2500; ++i)
        text += "instance of A { ID = \"" + std::to_string(i) + "\"; };\n";
    CComPtr<IMofCompiler> compiler;
    ASSERT_CODE(S_OK, compiler.CoCreateInstance(CLSID_MofCompiler));
    CComPtr<IMofProgressSource> source;
    ASSERT_CODE(S_OK, compiler.QueryInterface(&source));

    Listener listener;
    ASSERT_CODE(S_OK, source->SetProgress(&listener));
    ASSERT_CODE(S_OK, Compile(*compiler, text));
    ASSERT_GT(listener.heard.size(), 2u);
    ULONGLONG before = 0;
    for (const auto& [done, total] : listener.heard) {
        EXPECT_GT(done, before);
        EXPECT_EQ(total, 2501u);
        before = done;
    }
    EXPECT_EQ(before, 2501u);

    ASSERT_CODE(S_OK, Compile(*compiler, "#pragma locale(1)\n#pragma locale(2)"));
    EXPECT_EQ(listener.warnings, std::vector<std::wstring>{L"buffer:1:9: #pragma locale has no effect here"});

    // Of what fails the end is never told.
    listener.heard.clear();
    EXPECT_CODE(WBEM_E_ILLEGAL_NULL, Compile(*compiler, "instance of A { };"));
    EXPECT_TRUE(listener.heard.empty());

    EXPECT_CODE(S_OK, source->SetProgress(nullptr));
    EXPECT_EQ(listener.references, 1u);
    EXPECT_CODE(S_OK, Compile(*compiler, "instance of A { ID = \"more\"; };"));
    EXPECT_TRUE(listener.heard.empty());
}

// The thread holds the store's lock for writing: it must not wait for it.
TEST_F(MofProgress, WhoIsToldMustNotWrite) {
    ASSERT_EQ(Import("class A { [key] string ID; };"), S_OK);
    CComPtr<IMofCompiler> compiler;
    ASSERT_EQ(compiler.CoCreateInstance(CLSID_MofCompiler), S_OK);
    CComPtr<IMofProgressSource> source;
    ASSERT_EQ(compiler.QueryInterface(&source), S_OK);
    Listener listener;
    int refused = 0;
    listener.on_progress = [&] {
        const ObjectPointer instance = Spawn(L"A");
        PutValue(instance, L"ID", Text(L"within"));
        if (PutInstance(instance) == WBEM_E_UNEXPECTED) ++refused;
        source->SetProgress(nullptr);
    };
    source->SetProgress(&listener);
    EXPECT_EQ(Compile(*compiler, "instance of A { ID = \"imported\"; };"), S_OK);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(Show(Get(L"A.ID=\"imported\""), L"ID"), "BSTR imported");
    EXPECT_EQ(listener.references, 1U);
}

}  // namespace
