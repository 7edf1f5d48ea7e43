// The instances that the benchmarks work on: 10 properties of the kinds that a product's settings have.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace bench {

inline constexpr int kInstances = 10'000;
inline constexpr const wchar_t* kNamespace = L"\\\\.\\root\\Vantrel\\Bench";
inline constexpr const wchar_t* kClass = L"Policy";

inline constexpr std::array<const wchar_t*, 10> kNames = {
    L"INSTANCE_ID", L"DisplayName", L"Owner",    L"TargetPath", L"KeepDays",
    L"Priority",    L"Enabled",     L"Fraction", L"MaxBytes",   L"Modified"};

struct Policy {
    std::string id;
    std::string display_name;
    std::string owner;
    std::string target_path;
    uint32_t keep_days;
    int32_t priority;
    bool enabled;
    double fraction;
    uint64_t max_bytes;
    std::string modified;
};

Policy MakePolicy(int number);
std::wstring IdOf(int number);

// The class as MOF, and the instances from `first` up to, but not including, `end`.
std::string MofClass();
std::string MofInstances(int first, int end);

// One as a row of values separated by commas.
std::string CsvRow(const Policy& policy);

// A directory of its own below TMPDIR, removed with everything in it at the end.
class TemporaryDirectory {
 public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    const std::string& path() const noexcept { return path_; }

 private:
    std::string path_;
};

// Points the library and this thread at the store in `directory`.
void UseStore(const std::string& directory);
// Makes that store, with the policies.
void PrepareStore(const std::string& directory, int instances = kInstances);

}  // namespace bench
