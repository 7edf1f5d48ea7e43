#include "bench/policy_data.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <atlbase.h>
#include <objbase.h>
#include <wbemidl.h>

namespace bench {

Policy MakePolicy(int number) {
    char id[32];
    std::snprintf(id, sizeof id, "policy-%07d", number);
    return {id,
            "Retention of department " + std::to_string(number % 97),
            "owner" + std::to_string(number % 13) + "@example.net",
            "/srv/archive/volume" + std::to_string(number % 7) + "/" + id,
            static_cast<uint32_t>(30 + number % 3000),
            number % 11 - 5,
            number % 3 != 0,
            static_cast<double>(number % 1000) / 1000,
            uint64_t{1} << (20 + number % 20),
            "20261122103000.000000+000"};
}

std::wstring IdOf(int number) {
    wchar_t id[32];
    std::swprintf(id, 32, L"policy-%07d", number);
    return id;
}

std::string MofClass() {
    return "class Policy { [key] string INSTANCE_ID; string DisplayName; string Owner; string TargetPath;\n"
           "  uint32 KeepDays; sint32 Priority; boolean Enabled; real64 Fraction; uint64 MaxBytes; datetime "
           "Modified; };\n";
}

std::string MofInstances(int first, int end) {
    std::string text;
    for (int i = first; i < end; ++i) {
        const Policy policy = MakePolicy(i);
        text += "instance of Policy { INSTANCE_ID=\"" + policy.id + "\"; DisplayName=\"" +
                policy.display_name + "\"; Owner=\"" + policy.owner + "\"; TargetPath=\"" +
                policy.target_path + "\"; KeepDays=" + std::to_string(policy.keep_days) +
                "; Priority=" + std::to_string(policy.priority) +
                "; Enabled=" + (policy.enabled ? "TRUE" : "FALSE") +
                "; Fraction=" + std::to_string(policy.fraction) +
                "; MaxBytes=" + std::to_string(policy.max_bytes) + "; Modified=\"" + policy.modified +
                "\"; };\n";
    }
    return text;
}

std::string CsvRow(const Policy& policy) {
    return policy.id + "," + policy.display_name + "," + policy.owner + "," + policy.target_path + "," +
           std::to_string(policy.keep_days) + "," + std::to_string(policy.priority) + "," +
           (policy.enabled ? "1," : "0,") + std::to_string(policy.fraction) + "," +
           std::to_string(policy.max_bytes) + "," + policy.modified + "\n";
}

TemporaryDirectory::TemporaryDirectory() {
    const char* parent = std::getenv("TMPDIR");
    path_ = std::string(parent && *parent ? parent : "/tmp") + "/mgmt-bench-XXXXXX";
    if (!mkdtemp(path_.data())) {
        std::perror(path_.c_str());
        std::exit(1);
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void UseStore(const std::string& directory) {
    setenv("MGMT_STORE", directory.c_str(), 1);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

void PrepareStore(const std::string& directory, int instances) {
    constexpr int kAtOnce = 50'000;
    UseStore(directory);
    CComPtr<IMofCompiler> compiler;
    HRESULT status = compiler.CoCreateInstance(CLSID_MofCompiler, nullptr, CLSCTX_INPROC_SERVER);
    for (int first = 0; first < instances && SUCCEEDED(status); first += kAtOnce) {
        std::string text = first == 0 ? MofClass() : std::string();
        text += MofInstances(first, std::min(first + kAtOnce, instances));
        std::wstring space(kNamespace);
        WBEM_COMPILE_STATUS_INFO info{};
        status = compiler->CompileBuffer(static_cast<long>(text.size()), reinterpret_cast<BYTE*>(text.data()),
                                         space.data(), nullptr, nullptr, nullptr, 0, 0, 0, &info);
    }
    if (FAILED(status)) {
        std::fprintf(stderr, "the store cannot be prepared: 0x%x\n", static_cast<unsigned>(status));
        std::exit(1);
    }
}

}  // namespace bench
