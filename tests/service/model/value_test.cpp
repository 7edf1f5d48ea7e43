#include "service/model/value.h"

#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/model/limits.h"
#include "tests/service/model/model_builders.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

PropertyType Single(CimType type) {
    return {type, false, 0, {}};
}

PropertyType ArrayOf(CimType type, uint32_t max_elements = 0) {
    return {type, true, max_elements, {}};
}

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
    for (const Case& each : cases) {
        SCOPED_TRACE(CimTypeName(each.type));
        if (each.low < 0) {
            EXPECT_OK(CheckValue(Single(each.type), each.low));
            EXPECT_OK(CheckValue(Single(each.type), static_cast<int64_t>(each.high)));
            if (each.low > INT64_MIN) {
                EXPECT_EQ(CheckValue(Single(each.type), each.low - 1).code(), WBEM_E_TYPE_MISMATCH);
                EXPECT_EQ(CheckValue(Single(each.type), static_cast<int64_t>(each.high) + 1).code(),
                          WBEM_E_TYPE_MISMATCH);
            }
            EXPECT_EQ(CheckValue(Single(each.type), uint64_t{1}).code(), WBEM_E_TYPE_MISMATCH);
        } else {
            EXPECT_OK(CheckValue(Single(each.type), each.high));
            if (each.high < UINT64_MAX) {
                EXPECT_EQ(CheckValue(Single(each.type), each.high + 1).code(), WBEM_E_TYPE_MISMATCH);
            }
            EXPECT_EQ(CheckValue(Single(each.type), int64_t{1}).code(), WBEM_E_TYPE_MISMATCH);
        }
        EXPECT_OK(CheckValue(Single(each.type), Value()));
    }
}

TEST(Value, KindsAndShapesMustFit) {
    EXPECT_EQ(CheckValue(Single(CimType::kString), true).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(CheckValue(Single(CimType::kBoolean), "x"s).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(CheckValue(Single(CimType::kReal64), uint64_t{1}).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(CheckValue(Single(CimType::kString), Array{}).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(CheckValue(ArrayOf(CimType::kString), "x"s).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(CheckValue(Single(CimType::kObject), ObjectPtr()).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_OK(CheckValue(Single(CimType::kReal32), std::numeric_limits<double>::quiet_NaN()));

    EXPECT_OK(CheckValue(ArrayOf(CimType::kString), Array{}));
    EXPECT_OK(CheckValue(ArrayOf(CimType::kString), Array{"a"s, {}, "b"s}));
    const Status null_number = CheckValue(ArrayOf(CimType::kUint8), Array{uint64_t{1}, {}});
    EXPECT_EQ(null_number.code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_THAT(null_number.reason(), HasSubstr("element 1"));
    EXPECT_EQ(CheckValue(ArrayOf(CimType::kUint8), Array{uint64_t{256}}).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_EQ(CheckValue(ArrayOf(CimType::kUint8), Array{"1"s}).code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_OK(CheckValue(ArrayOf(CimType::kUint8, 2), Array{uint64_t{1}, uint64_t{2}}));
    EXPECT_EQ(CheckValue(ArrayOf(CimType::kUint8, 1), Array{uint64_t{1}, uint64_t{2}}).code(),
              WBEM_E_TYPE_MISMATCH);
    EXPECT_OK(CheckValue(ArrayOf(CimType::kUint8, 1), Value()));
}

TEST(Value, EmbeddedObjectsMustBeOfTheClass) {
    const ClassPtr base = Resolved(Declare("Base", {Property("A", CimType::kString)}));
    const ClassPtr derived = Resolved(Declare("Derived", {}, "Base"), base);
    const ClassPtr other = Resolved(Declare("Other", {}));
    const PropertyType type{CimType::kObject, false, 0, "BASE"};
    EXPECT_OK(CheckValue(type, std::make_shared<const Instance>(base)));
    EXPECT_OK(CheckValue(type, std::make_shared<const Instance>(derived)));
    const Status fault = CheckValue(type, std::make_shared<const Instance>(other));
    EXPECT_EQ(fault.code(), WBEM_E_TYPE_MISMATCH);
    EXPECT_THAT(fault.reason(), testing::AllOf(HasSubstr("Other"), HasSubstr("BASE")));
    EXPECT_OK(CheckValue(Single(CimType::kObject), std::make_shared<const Instance>(other)));
}

TEST(Value, DatetimesHaveTheirForm) {
    for (const char* sound :
         {"20240229235959.999999+000", "20240131000000.000000-720", "00010101000000.000000+000",
          "99991231235959.000000+840", "2024**********.******+***", "**************.******+***",
          "20240131******.******-060", "00000000000000.000000:000", "99999999235959.999999:000",
          "********235959.999999:000"}) {
        EXPECT_TRUE(IsCimDatetime(sound)) << sound;
    }
    for (const char* wrong : {"",
                              "20240131235958.000000+00",
                              "20240131235958.000000+0000",
                              "20240131235958,000000+000",
                              "20240131235958.000000 000",
                              "20241331235958.000000+000",
                              "20240031235958.000000+000",
                              "20240132235958.000000+000",
                              "20240100235958.000000+000",
                              "20240131245958.000000+000",
                              "20240131236058.000000+000",
                              "20240131235960.000000+000",
                              "20240131235958.00000x+000",
                              "2024013123595a.000000+000",
                              "20240131235958.000000+0x0",
                              "202401312359*8.000000+000",
                              "20240131235958.000000:060",
                              "00000001250000.000000:000",
                              "-0240131235958.000000+000",
                              "20240131235958.000000+-60"}) {
        EXPECT_FALSE(IsCimDatetime(wrong)) << wrong;
        EXPECT_EQ(CheckValue(Single(CimType::kDatetime), std::string(wrong)).code(), WBEM_E_TYPE_MISMATCH);
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
    EXPECT_EQ(DescribeType(Single(CimType::kUint32)), "uint32");
    EXPECT_EQ(DescribeType(ArrayOf(CimType::kUint32, 8)), "uint32[8]");
    EXPECT_EQ(DescribeType({CimType::kReference, false, 0, "Policy"}), "ref:Policy");
    EXPECT_EQ(DescribeType({CimType::kObject, true, 0, "Schedule"}), "object:Schedule[]");
    for (uint32_t code = 0; code < 0x300; ++code) {
        const auto type = static_cast<CimType>(code);
        if (!IsCimType(static_cast<uint16_t>(code))) continue;
        EXPECT_FALSE(CimTypeName(type).empty()) << code;
    }
    EXPECT_FALSE(IsCimType(0));
    EXPECT_FALSE(IsCimType(0x2000));
}

}  // namespace
}  // namespace service
