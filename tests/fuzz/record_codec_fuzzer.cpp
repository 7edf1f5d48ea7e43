// The input is a record behind one letter: I an instance's and C a class's, both without their checksum,
// which they get here; R either with the checksum that they have.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "service/model/object_path.h"
#include "service/store/record_codec.h"
#include "service/store/schema_codec.h"
#include "tests/fuzz/expectations.h"
#include "tests/fuzz/schema.h"

namespace {

using namespace service;
using fuzz::Expect;

class SchemaClasses final : public ClassSource {
 public:
    Result<ClassPtr> FindEmbeddedClass(std::string_view name) const override {
        if (Result<ClassPtr> found = fuzz::FindClass(name); found.ok()) return found;
        return Status(WBEM_E_INVALID_CLASS, "there is no such class");
    }
};

std::string Sealed(std::string_view body) {
    const auto checksum = static_cast<uint32_t>(XXH64(body.data(), body.size(), 0));
    std::string record(sizeof checksum, '\0');
    std::memcpy(record.data(), &checksum, sizeof checksum);
    return record.append(body);
}

void ExpectDamaged(const Status& fault) {
    Expect(fault.code() == WBEM_E_CRITICAL_ERROR || fault.code() == WBEM_E_INVALID_CLASS,
           "what is damaged is called so", fault.reason());
    fuzz::ExpectSentence(fault);
}

// Whether every property can be read, the embedded ones included.
bool IsReadable(const Instance& instance) {
    bool is_readable = true;
    for (size_t i = 0; i < instance.Class()->Properties().size(); ++i) {
        Value storage;
        ValueView view;
        bool is_set = false;
        const Status fault = instance.ReadOwn(i, is_set, storage, view);
        Expect(is_set == instance.IsSet(i), "a property is set or it is not");
        if (!fault.ok()) {
            ExpectDamaged(fault);
            is_readable = false;
        } else if (const auto* object = std::get_if<const ObjectPtr*>(&view)) {
            is_readable = IsReadable(***object) && is_readable;
        } else if (const auto* array = std::get_if<const Array*>(&view)) {
            for (const Scalar& element : **array) {
                const auto* held = std::get_if<ObjectPtr>(&element);
                is_readable = (!held || IsReadable(**held)) && is_readable;
            }
        }
    }
    return is_readable;
}

void CheckInstance(std::string_view record) {
    const auto classes = std::make_shared<const SchemaClasses>();
    const ClassPtr wide = fuzz::ClassNamed("Wide");
    static_cast<void>(ClassIdOfRecord(record));
    const Result<Instance> read = DecodeInstance(wide, record, classes);
    if (!read.ok()) return ExpectDamaged(read.status());
    static_cast<void>(read->EmbeddedObjects());
    static_cast<void>(KeyOf(*read));
    if (!IsReadable(*read)) return;

    std::string written;
    if (const Status fault = EncodeInstance(*read, written); !fault.ok()) return fuzz::ExpectSentence(fault);
    const Result<Instance> again = DecodeInstance(wide, written, classes);
    Expect(again.ok() && SameInstance(*read, *again), "an instance written reads as the same");
    std::string rewritten;
    Expect(EncodeInstance(*again, rewritten).ok() && rewritten == written, "an instance has one record");
}

void CheckClass(std::string_view bytes) {
    const Result<ClassRecord> read = DecodeClass(bytes);
    if (!read.ok()) return ExpectDamaged(read.status());
    std::string written;
    if (const Status fault = EncodeClass(*read, written); !fault.ok()) return fuzz::ExpectSentence(fault);
    const Result<ClassRecord> again = DecodeClass(written);
    Expect(again.ok(), "a class written can be read", again.status().reason());
    std::string rewritten;
    Expect(EncodeClass(*again, rewritten).ok() && rewritten == written, "a class has one record");

    const Result<ClassPtr> definition = ClassDefinition::Resolve(read->class_id, read->declaration, nullptr);
    if (!definition.ok() && IsValidUtf8(bytes.substr(1))) fuzz::ExpectSentence(definition.status());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view body(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] == 'I') CheckInstance(Sealed(body));
    if (data[0] == 'C') CheckClass(Sealed(body));
    if (data[0] == 'R') {
        CheckInstance(body);
        CheckClass(body);
    }
    return 0;
}
