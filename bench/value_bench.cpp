// Arrays of strings against a plain loop of copies, and an instance's XML text against the same text written
// by hand with libxml2.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include <comutil.h>
#include <libxml/xmlwriter.h>
#include <oleauto.h>

#include "bench/allocation_count.h"
#include "bench/policy_data.h"
#include "utility/management/mgmt.h"

namespace {

constexpr ULONG kStrings = 10'000;

std::wstring StringAt(ULONG number) {
    return L"server-" + std::to_wstring(number) + L".example.net";
}

template <typename Work>
void Measure(benchmark::State& state, Work work) {
    work();
    const uint64_t before = AllocationCount();
    work();
    state.counters["allocations"] = static_cast<double>(AllocationCount() - before);
    for (auto _ : state)
        work();
}

_variant_t MakeArray() {
    CMgmtBSTRArrayAccessHelper strings;
    for (ULONG i = 0; i < kStrings; ++i)
        strings.Add(StringAt(i).c_str());
    _variant_t array;
    strings.PutElementsIntoArray(array);
    return array;
}

void Array_ReadByHand(benchmark::State& state) {
    const _variant_t array = MakeArray();
    Measure(state, [&] {
        BSTR* data = nullptr;
        SafeArrayAccessData(array.parray, reinterpret_cast<void**>(&data));
        std::vector<_bstr_t> strings;
        strings.reserve(kStrings);
        for (ULONG i = 0; i < kStrings; ++i)
            strings.emplace_back(static_cast<const wchar_t*>(data[i]));
        SafeArrayUnaccessData(array.parray);
        benchmark::DoNotOptimize(strings.data());
    });
}
BENCHMARK(Array_ReadByHand);

void Array_Read(benchmark::State& state) {
    const _variant_t array = MakeArray();
    Measure(state, [&] {
        CMgmtBSTRArrayAccessHelper strings;
        benchmark::DoNotOptimize(strings.GetElementsFromArray(&array));
    });
}
BENCHMARK(Array_Read);

void Array_WriteByHand(benchmark::State& state) {
    std::vector<_bstr_t> strings;
    for (ULONG i = 0; i < kStrings; ++i)
        strings.emplace_back(StringAt(i).c_str());
    Measure(state, [&] {
        SAFEARRAYBOUND bound{kStrings, 0};
        _variant_t array;
        array.parray = SafeArrayCreate(VT_BSTR, 1, &bound);
        array.vt = VT_ARRAY | VT_BSTR;
        BSTR* data = nullptr;
        SafeArrayAccessData(array.parray, reinterpret_cast<void**>(&data));
        for (ULONG i = 0; i < kStrings; ++i)
            data[i] = SysAllocStringLen(strings[i], strings[i].length());
        SafeArrayUnaccessData(array.parray);
    });
}
BENCHMARK(Array_WriteByHand);

void Array_Write(benchmark::State& state) {
    CMgmtBSTRArrayAccessHelper strings;
    for (ULONG i = 0; i < kStrings; ++i)
        strings.Add(StringAt(i).c_str());
    Measure(state, [&] {
        _variant_t array;
        if (!strings.PutElementsIntoArray(array)) state.SkipWithError("the array was not made");
    });
}
BENCHMARK(Array_Write);

struct FreeBuffer {
    void operator()(xmlBuffer* buffer) const noexcept { xmlBufferFree(buffer); }
};
struct FreeWriter {
    void operator()(xmlTextWriter* writer) const noexcept { xmlFreeTextWriter(writer); }
};

// As the caller gets it: wide text.
void Xml_ByHand(benchmark::State& state) {
    const bench::Policy policy = bench::MakePolicy(1);
    const std::vector<std::pair<const char*, std::string>> values = {
        {"string", policy.display_name},
        {"boolean", policy.enabled ? "TRUE" : "FALSE"},
        {"real64", std::to_string(policy.fraction)},
        {"string", policy.id},
        {"uint32", std::to_string(policy.keep_days)},
        {"uint64", std::to_string(policy.max_bytes)},
        {"datetime", policy.modified},
        {"string", policy.owner},
        {"sint32", std::to_string(policy.priority)},
        {"string", policy.target_path}};
    const auto text = [](const std::string& value) {
        return reinterpret_cast<const xmlChar*>(value.c_str());
    };
    Measure(state, [&] {
        const std::unique_ptr<xmlBuffer, FreeBuffer> buffer(xmlBufferCreate());
        const std::unique_ptr<xmlTextWriter, FreeWriter> writer(xmlNewTextWriterMemory(buffer.get(), 0));
        xmlTextWriterStartElement(writer.get(), BAD_CAST "INSTANCE");
        xmlTextWriterWriteAttribute(writer.get(), BAD_CAST "CLASSNAME", BAD_CAST "Policy");
        for (const auto& [type, value] : values) {
            xmlTextWriterStartElement(writer.get(), BAD_CAST "PROPERTY");
            xmlTextWriterWriteAttribute(writer.get(), BAD_CAST "NAME", BAD_CAST "DisplayName");
            xmlTextWriterWriteAttribute(writer.get(), BAD_CAST "TYPE", BAD_CAST type);
            xmlTextWriterWriteElement(writer.get(), BAD_CAST "VALUE", text(value));
            xmlTextWriterEndElement(writer.get());
        }
        xmlTextWriterEndElement(writer.get());
        xmlTextWriterFlush(writer.get());
        const _bstr_t wide(reinterpret_cast<const char*>(xmlBufferContent(buffer.get())));
        benchmark::DoNotOptimize(wide.length());
    });
}
BENCHMARK(Xml_ByHand);

void Xml_GetXML(benchmark::State& state) {
    CMgmtObject object(bench::kClass, bench::IdOf(1).c_str(), nullptr);
    if (!object.Get()) return state.SkipWithError("Get failed");
    Measure(state, [&] {
        if (object.GetXML().length() == 0) state.SkipWithError("GetXML failed");
    });
}
BENCHMARK(Xml_GetXML);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const bench::TemporaryDirectory directory;
    bench::PrepareStore(directory.path(), 10);
    MgmtInitialize(bench::kNamespace);
    benchmark::RunSpecifiedBenchmarks();
    MgmtUninitialize();
}
