#include "service/model/value.h"

#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

TEST(Value, IntegersStayWithinTheirRange) {
    struct Case {
        CimType type;
        int64_t low;
        uint64_t high;
    };
    const std::vector<Case> cases = {
        {CimType::kSint8, -128, 127},      {CimType::kUint8, 0, 255},
        {CimType::kSint16, -32768, 32767}, {CimType::kUint16, 0, 65535},
        {CimType::kChar16, 0, 65535},      {CimType::kSint32, INT32_MIN, INT32_MAX},
        {CimType::kUint32, 0, UINT32_MAX}, {CimType::kSint64, INT64_MIN, INT64_MAX},
        {CimType::kUint64, 0, UINT64_MAX},
    };
    for (const auto& [type, low, high] : cases) {
        SCOPED_TRACE(CimTypeName(type));
        const auto code = [type = type](Value value) { return CheckValue(One(type), value).code(); };
        const bool is_signed = low < 0;
        const auto number = [&](uint64_t held) {
            return is_signed ? Value(static_cast<int64_t>(held)) : Value(held);
        };
        EXPECT_EQ(code(number(static_cast<uint64_t>(low))), 0);
        EXPECT_EQ(code(number(high)), 0);
        EXPECT_EQ(code({}), 0);
        EXPECT_EQ(code(is_signed ? Value(uint64_t{1}) : Value(int64_t{1})), WBEM_E_TYPE_MISMATCH);
        if (type == CimType::kSint64 || type == CimType::kUint64) continue;
        EXPECT_EQ(code(number(high + 1)), WBEM_E_TYPE_MISMATCH);
        EXPECT_TRUE(!is_signed || code(low - 1) == WBEM_E_TYPE_MISMATCH);
    }
}

TEST(Value, KindsAndShapesMustFit) {
    const std::vector<std::pair<PropertyType, Value>> sound{
        {One(CimType::kReal32), std::numeric_limits<double>::quiet_NaN()},
        {Many(CimType::kString), Array{}},
        {Many(CimType::kString), Array{"a"s, {}, "b"s}},
        {Many(CimType::kUint8, 2), Array{uint64_t{1}, uint64_t{2}}},
        {Many(CimType::kUint8, 1), Value()},
    };
    for (const auto& [type, value] : sound)
        EXPECT_OK(CheckValue(type, value)) << DescribeType(type);
    const std::vector<std::pair<PropertyType, Value>> unfit{
        {One(CimType::kString), true},
        {One(CimType::kBoolean), "x"s},
        {One(CimType::kReal64), uint64_t{1}},
        {One(CimType::kString), Array{}},
        {Many(CimType::kString), "x"s},
        {One(CimType::kObject), ObjectPtr()},
        {Many(CimType::kUint8), Array{uint64_t{1}, {}}},
        {Many(CimType::kUint8), Array{uint64_t{256}}},
        {Many(CimType::kUint8), Array{"1"s}},
        {Many(CimType::kUint8, 1), Array{uint64_t{1}, uint64_t{2}}},
    };
    for (const auto& [type, value] : unfit)
        EXPECT_EQ(CheckValue(type, value).code(), WBEM_E_TYPE_MISMATCH) << DescribeType(type);
    EXPECT_THAT(CheckValue(Many(CimType::kUint8), Array{uint64_t{1}, {}}).reason(), HasSubstr("element 1"));
}

TEST(Value, EmbeddedObjectsMustBeOfTheClass) {
    const ClassPtr base = Resolved(Declare("Base", {Property("A", CimType::kString)}));
    const ClassPtr derived = Resolved(Declare("Derived", {}, "Base"), base);
    const auto other = std::make_shared<const Instance>(Resolved(Declare("Other", {})));
    const PropertyType type = One(CimType::kObject, "BASE");
    EXPECT_OK(CheckValue(type, std::make_shared<const Instance>(base)));
    EXPECT_OK(CheckValue(type, std::make_shared<const Instance>(derived)));
    EXPECT_OK(CheckValue(One(CimType::kObject), other));
    const Status fault = CheckValue(type, other);
    EXPECT_EQ(fault.code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_THAT(fault.reason(), testing::AllOf(HasSubstr("Other"), HasSubstr("BASE")));
}

TEST(Value, DatetimesHaveTheirForm) {
    for (const char* sound :
         {"20240229235959.999999+000", "20240131000000.000000-720", "00010101000000.000000+000",
          "99991231235959.000000+840", "2024**********.******+***", "**************.******+***",
          "20240131******.******-060", "00000000000000.000000:000", "99999999235959.999999:000",
          "********235959.999999:000"}) {
        EXPECT_TRUE(IsCimDatetime(sound)) << sound;
    }
    for (const std::string wrong :
         {"20240131235958,000000+000", "20240131235958.000000 000", "20241331235958.000000+000",
          "20240031235958.000000+000", "20240132235958.000000+000", "20240100235958.000000+000",
          "20240131245958.000000+000", "20240131236058.000000+000", "20240131235960.000000+000",
          "20240131235958.00000x+000", "2024013123595a.000000+000", "20240131235958.000000+0x0",
          "202401312359*8.000000+000", "20240131235958.000000:060", "00000001250000.000000:000",
          "-0240131235958.000000+000", "20240131235958.000000+-60", "", "20240131235958.000000+00"}) {
        EXPECT_FALSE(IsCimDatetime(wrong)) << wrong;
        EXPECT_EQ(CheckValue(One(CimType::kDatetime), wrong).code(), WBEM_E_TYPE_MISMATCH);
    }
    EXPECT_FALSE(IsCimDatetime("20240131235958.000000+\0000"s));
}

TEST(Value, SameValuesAreToldByTheirBits) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(SameValue(nan, nan));
    EXPECT_FALSE(SameValue(0.0, -0.0));
    EXPECT_FALSE(SameValue(Value(), ""s));
    EXPECT_FALSE(SameValue(Array{}, Value()));
    EXPECT_FALSE(SameValue(Array{nan, 1.0}, Array{nan, 2.0}));
    EXPECT_TRUE(SameValue(Array{{}, "a"s}, Array{{}, "a"s}));
    EXPECT_FALSE(SameValue(Array{{}}, Array{""s}));

    const ClassPtr cls = Resolved(Declare("C", {Property("A", CimType::kString, "d"s)}));
    auto one = std::make_shared<Instance>(cls);
    auto two = std::make_shared<Instance>(cls);
    EXPECT_TRUE(SameValue(ObjectPtr(one), ObjectPtr(two)));
    ASSERT_OK(SetProperty(*two, "A", "e"s));
    EXPECT_FALSE(SameValue(ObjectPtr(one), ObjectPtr(two)));
    ASSERT_OK(SetProperty(*one, "A", "e"s));
    EXPECT_TRUE(SameValue(Array{ObjectPtr(one)}, Array{ObjectPtr(two)}));
}

TEST(Value, TypesAreDescribedForPeople) {
    EXPECT_EQ(DescribeType(Many(CimType::kUint32, 8)), "uint32[8]");
    EXPECT_EQ(DescribeType(One(CimType::kReference, "Policy")), "ref:Policy");
    EXPECT_EQ(DescribeType(Many(CimType::kObject, 0, "Schedule")), "object:Schedule[]");
    EXPECT_FALSE(IsCimType(0));
    EXPECT_FALSE(IsCimType(0x2000));
}

}  // namespace
}  // namespace service
