#include "service/store/record_codec.h"

#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include "service/model/object_path.h"
#include "service/model/text.h"
#include "service/store/schema_codec.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using namespace std::string_literals;

constexpr size_t kChecksumBytes = 4;

class KnownClasses final : public ClassSource {
 public:
    explicit KnownClasses(ClassPtr known) : known_(std::move(known)) {}
    Result<ClassPtr> FindEmbeddedClass(std::string_view name) const override {
        if (EqualFolded(name, known_->Name())) return known_;
        return Status(WBEM_E_INVALID_CLASS, "there is no class " + std::string(name));
    }

 private:
    const ClassPtr known_;
};

ClassPtr InnerClass() {
    static const ClassPtr inner = Resolved(Declare(
        "Inner", {Property("A", CimType::kString, "default"s), ArrayProperty("B", CimType::kUint16)}));
    return inner;
}

constexpr CimType kAllTypes[] = {CimType::kSint8,  CimType::kUint8,    CimType::kSint16,    CimType::kUint16,
                                 CimType::kSint32, CimType::kUint32,   CimType::kSint64,    CimType::kUint64,
                                 CimType::kReal32, CimType::kReal64,   CimType::kChar16,    CimType::kBoolean,
                                 CimType::kString, CimType::kDatetime, CimType::kReference, CimType::kObject};

std::string CodeOf(CimType type) {
    return std::to_string(static_cast<int>(type));
}

Value ValueOf(const Scalar& scalar) {
    return std::visit([](const auto& held) -> Value { return held; }, scalar);
}

// Every type alone and as an array: "P8", "A8", ...
ClassPtr WideClass() {
    static const ClassPtr wide = [] {
        std::vector<PropertyDeclaration> properties = {Key("ID")};
        for (const CimType type : kAllTypes) {
            properties.push_back(Property("P" + CodeOf(type), type));
            properties.push_back(ArrayProperty("A" + CodeOf(type), type));
        }
        return Resolved(Declare("Wide", properties));
    }();
    return wide;
}

std::shared_ptr<const ClassSource> Classes() {
    return std::make_shared<const KnownClasses>(InnerClass());
}

ObjectPtr InnerObject(const std::string& text) {
    Instance inner(InnerClass());
    EXPECT_OK(SetProperty(inner, "A", text));
    EXPECT_OK(SetProperty(inner, "B", Array{uint64_t{1}, uint64_t{65'535}}));
    return std::make_shared<const Instance>(inner);
}

std::vector<Scalar> BoundaryValues(CimType type) {
    switch (RepresentationOf(type)) {
        case Representation::kBoolean:
            return {true, false};
        case Representation::kSigned:
            return {int64_t{0}, int64_t{-1}, RangeOf(type).low, static_cast<int64_t>(RangeOf(type).high)};
        case Representation::kUnsigned:
            return {uint64_t{0}, uint64_t{1}, RangeOf(type).high};
        case Representation::kReal:
            return {0.0, -0.0, 0.5, std::numeric_limits<double>::infinity(),
                    std::numeric_limits<double>::quiet_NaN()};
        case Representation::kObject:
            return {InnerObject("x"), InnerObject("")};
        default:
            if (type == CimType::kDatetime)
                return {"20240229235959.000000+060"s, "00000001000000.000000:000"s};
            return {""s, "x"s, "\0"s, "😀\n\"\\"s, std::string(70'000, 'l')};
    }
}

std::string Encoded(const Instance& instance) {
    std::string record;
    EXPECT_OK(EncodeInstance(instance, record));
    return record;
}

Instance FullInstance() {
    Instance instance(WideClass());
    EXPECT_OK(SetProperty(instance, "ID", "full"s));
    for (const CimType type : kAllTypes) {
        const std::vector<Scalar> values = BoundaryValues(type);
        EXPECT_OK(SetProperty(instance, "P" + CodeOf(type), ValueOf(values.back())));
        EXPECT_OK(SetProperty(instance, "A" + CodeOf(type), Array(values.begin(), values.end())));
    }
    return instance;
}

// Reads everything there is, as deep as it goes.
void ReadAll(const Instance& instance) {
    for (size_t i = 0; i < instance.Class()->Properties().size(); ++i) {
        Value storage;
        ValueView view;
        if (!instance.Read(i, storage, view).ok()) continue;
        if (const auto* object = std::get_if<const ObjectPtr*>(&view)) ReadAll(***object);
        if (const auto* text = std::get_if<std::string_view>(&view)) static_cast<void>(Fold(*text));
        if (const auto* array = std::get_if<const Array*>(&view)) {
            for (const Scalar& element : **array) {
                if (const auto* object = std::get_if<ObjectPtr>(&element)) ReadAll(**object);
            }
        }
    }
    static_cast<void>(KeyOf(instance).ok());
    static_cast<void>(instance.EmbeddedObjects());
    std::string again;
    static_cast<void>(EncodeInstance(instance, again).ok());
}

// Gives changed bytes the checksum that belongs to them.
void Reseal(std::string& record) {
    if (record.size() < kChecksumBytes) return;
    const auto checksum =
        static_cast<uint32_t>(XXH64(record.data() + kChecksumBytes, record.size() - kChecksumBytes, 0));
    std::memcpy(record.data(), &checksum, sizeof checksum);
}

TEST(RecordCodec, EveryValueComesBack) {
    for (const CimType type : kAllTypes) {
        for (const Scalar& value : BoundaryValues(type)) {
            Instance instance(WideClass());
            ASSERT_OK(SetProperty(instance, "P" + CodeOf(type), ValueOf(value)));
            const auto back = DecodeInstance(WideClass(), Encoded(instance), Classes());
            ASSERT_OK(back);
            EXPECT_TRUE(SameInstance(*back, instance)) << CimTypeName(type);
            EXPECT_EQ(ReadValueOf(*back, "ID"), Value());
        }
    }
    const Instance full = FullInstance();
    const auto back = DecodeInstance(WideClass(), Encoded(full), Classes());
    ASSERT_OK(back);
    EXPECT_TRUE(SameInstance(*back, full));
    EXPECT_EQ(Encoded(*back), Encoded(full)) << "what was read and not changed has the same record";
}

TEST(RecordCodec, NullEmptyAndNeverSetStayApart) {
    const ClassPtr definition = Resolved(
        Declare("C", {Property("S", CimType::kString, "default"s), ArrayProperty("A", CimType::kString)}));
    const auto read_back = [&](Instance instance) {
        return *DecodeInstance(definition, Encoded(instance), nullptr);
    };
    Instance instance(definition);
    EXPECT_EQ(ReadValueOf(read_back(instance), "S"), Value("default"s));
    for (const auto& [text, array] : {std::pair(Value(), Value()), std::pair(Value(""s), Value(Array{})),
                                      std::pair(Value("s"s), Value(Array{{}, ""s, {}, "a"s}))}) {
        ASSERT_OK(SetProperty(instance, "S", text));
        ASSERT_OK(SetProperty(instance, "A", array));
        EXPECT_EQ(ReadValueOf(read_back(instance), "S"), text);
        EXPECT_EQ(ReadValueOf(read_back(instance), "A"), array);
    }
}

// A little of every kind.
std::string SmallRecord() {
    Instance small(WideClass());
    EXPECT_OK(SetProperty(small, "ID", "k"s));
    EXPECT_OK(SetProperty(small, "P19", uint64_t{7}));
    EXPECT_OK(SetProperty(small, "A8", Array{"a"s, {}, "b"s}));
    EXPECT_OK(SetProperty(small, "A18", Array{uint64_t{1}, uint64_t{2}}));
    EXPECT_OK(SetProperty(small, "P13", InnerObject("in")));
    EXPECT_OK(SetProperty(small, "A13", Array{InnerObject("one"), {}, InnerObject("two")}));
    return Encoded(small);
}

TEST(RecordCodec, ADamagedRecordIsRefused) {
    const std::string record = SmallRecord();
    for (size_t i = 0; i < record.size(); ++i) {
        EXPECT_EQ(DecodeInstance(WideClass(), record.substr(0, i), Classes()).code(), WBEM_E_CRITICAL_ERROR);
        std::string changed = record;
        changed[i] = static_cast<char>(changed[i] ^ 0x10);
        EXPECT_EQ(DecodeInstance(WideClass(), changed, Classes()).code(), WBEM_E_CRITICAL_ERROR) << i;
    }
    EXPECT_EQ(ClassIdOfRecord(record), WideClass()->Id());
    EXPECT_EQ(ClassIdOfRecord(record.substr(0, 11)), 0U);
}

// A right checksum over wrong contents must not lead outside the record, nor anywhere else.
TEST(RecordCodec, SealedNonsenseGivesAStatusOrAValue) {
    const std::string record = SmallRecord();
    std::string sealed = record;
    Reseal(sealed);
    ASSERT_EQ(sealed, record) << "the test seals as the codec does";
    const auto look = [](std::string bytes) {
        Reseal(bytes);
        const auto instance = DecodeInstance(WideClass(), bytes, Classes());
        if (instance.ok()) ReadAll(*instance);
    };
    for (size_t size = 0; size <= record.size(); ++size)
        look(record.substr(0, size));
    for (size_t i = kChecksumBytes; i < record.size(); ++i) {
        const int byte = record[i];
        for (const int other : {byte ^ 1, byte ^ 2, byte ^ 4, byte ^ 8, byte ^ 16, byte ^ 32, byte ^ 64,
                                byte ^ 128, 0, 0x7F, 0xFF}) {
            std::string changed = record;
            changed[i] = static_cast<char>(other);
            look(changed);
        }
    }
    std::mt19937 random(11);
    for (int round = 0; round < 3'000; ++round) {
        std::string changed = record;
        for (int changes = 1 + static_cast<int>(random() % 6); changes > 0; --changes)
            changed[kChecksumBytes + random() % (changed.size() - kChecksumBytes)] =
                static_cast<char>(random());
        look(changed);
    }
}

ClassRecord SampleClass() {
    ClassRecord record;
    record.class_id = 42;
    record.declaration = Declare(
        "Sample",
        {Key("ID"), Property("Tags", PropertyType{CimType::kString, true, 4, {}}, Array{"a"s, {}, "b"s}),
         Property("N", CimType::kSint8, int64_t{-128}), Property("On", CimType::kBoolean, true),
         Property("R", CimType::kReal32, 0.5),
         Property("Inner", PropertyType{CimType::kObject, false, 0, "Inner"}),
         Property("Numbers", PropertyType{CimType::kUint64, true, 0, {}}, Array{UINT64_MAX})},
        "Base");
    Qualifier values = Flag("Values");
    values.type = {CimType::kString, true, 0, {}};
    values.value = Array{"x"s, "y"s};
    values.flavor = kFlavorToInstance | kFlavorAmended;
    Qualifier none = Flag("None");
    none.value = {};
    record.declaration.qualifiers = {values, none};
    record.declaration.properties[1].qualifiers = {values};
    return record;
}

TEST(RecordCodec, ClassesComeBackAsDeclared) {
    const ClassRecord sample = SampleClass();
    std::string bytes;
    ASSERT_OK(EncodeClass(sample, bytes));
    const auto back = DecodeClass(bytes);
    ASSERT_OK(back);
    std::string again;
    ASSERT_OK(EncodeClass(*back, again));
    EXPECT_EQ(again, bytes);
    EXPECT_EQ(back->class_id, 42U);
    EXPECT_EQ(back->declaration.properties.at(2).name, "N");
    EXPECT_TRUE(SameValue(back->declaration.properties[2].default_value, int64_t{-128}));
    EXPECT_TRUE(SameValue(back->declaration.qualifiers.at(0).value, Array{"x"s, "y"s}));
    EXPECT_EQ(bytes.at(4), 1) << "without methods it has the form that it had before there were any";
}

TEST(RecordCodec, DamagedClassesAreRefusedOrAreClasses) {
    std::string bytes;
    ASSERT_OK(EncodeClass(SampleClass(), bytes));
    for (size_t i = 0; i < bytes.size(); ++i) {
        EXPECT_EQ(DecodeClass(bytes.substr(0, i)).code(), WBEM_E_CRITICAL_ERROR) << i;
        for (const int change : {1, 0x20, 0x80, 0xFF}) {
            std::string changed = bytes, again;
            changed[i] = static_cast<char>(changed[i] ^ change);
            EXPECT_EQ(DecodeClass(changed).code(), WBEM_E_CRITICAL_ERROR) << i;
            Reseal(changed);
            const auto sealed = DecodeClass(changed);
            if (!sealed.ok()) continue;
            // What it says may be odd: then it is refused where classes are.
            static_cast<void>(Resolve(sealed->declaration).ok());
            static_cast<void>(EncodeClass(*sealed, again).ok());
        }
    }
}

TEST(RecordCodec, AnUnknownEmbeddedClassIsAFaultOfItsPropertyOnly) {
    const auto back =
        DecodeInstance(WideClass(), Encoded(FullInstance()),
                       std::make_shared<const KnownClasses>(Resolved(Declare("Elsewhere", {}))));
    ASSERT_OK(back);
    Value storage;
    ValueView view;
    EXPECT_EQ(back->Read(*WideClass()->FindProperty(std::string_view("P13")), storage, view).code(),
              WBEM_E_INVALID_CLASS);
    EXPECT_EQ(TextOf(*back, "ID"), "full");
}

}  // namespace
}  // namespace service
