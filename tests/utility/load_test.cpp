// What stands right after the library was loaded, and after it was loaded again: the executable is not linked
// to it.
#include <dlfcn.h>

#include <string>

#include <gtest/gtest.h>

#include <comutil.h>

namespace {

// As a scope is: one pointer, and not trivial to copy, so that it is returned in memory.
struct Scope {
    void* record;
    ~Scope() {}
};

class Library {
 public:
    Library() : m_Handle(dlopen(MGMT_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}
    ~Library() {
        if (m_Handle != nullptr) dlclose(m_Handle);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    bool IsLoaded() const { return m_Handle != nullptr; }

    template <typename Function>
    Function* Find(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(m_Handle, name));
    }

    // The default scope's path, behind a "+" when it is connected.
    std::wstring Default() const {
        Scope scope = Find<Scope()>("_ZN10CMgmtScope19GetDefaultMgmtScopeEv")();
        const _bstr_t path = Find<_bstr_t(Scope*)>("_ZN10CMgmtScope7GetPathEv")(&scope);
        const bool connected = Find<bool(Scope*)>("_ZN10CMgmtScope11IsConnectedEv")(&scope);
        Find<void(Scope*)>("_ZN10CMgmtScopeD1Ev")(&scope);
        return (connected ? L"+" : L"") + std::wstring(path);
    }

 private:
    void* m_Handle;
};

TEST(Load, DefaultScopeIsTheBuiltInOneAfterEveryLoad) {
    for (int i = 0; i < 2; ++i) {
        const Library library;
        ASSERT_TRUE(library.IsLoaded()) << dlerror();
        EXPECT_EQ(library.Default(), L"\\\\.\\root\\Vantrel\\Halvenor");
        EXPECT_TRUE(library.Find<bool(const wchar_t*)>("_Z14MgmtInitializePKw")(L"\\\\.\\root\\Other"));
        EXPECT_EQ(library.Default(), L"\\\\.\\root\\Other");
    }
    EXPECT_EQ(dlopen(MGMT_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "closing it must unload it";
}

}  // namespace
