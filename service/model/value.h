// CIM types and the values of qualifiers, properties and literals.
//
//   Value tags = Array{std::string("a"), std::string("b")};
//   if (Status fault = CheckValue(type, tags); !fault.ok()) return fault;
//
// A Value does not carry its CIM type: the property's declaration does. These are plain values: one thread at
// a time, or any number of readers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "service/model/status.h"

namespace service {

// The published codes.
enum class CimType : uint16_t {
    kSint16 = 2,
    kSint32 = 3,
    kReal32 = 4,
    kReal64 = 5,
    kString = 8,
    kBoolean = 11,
    kObject = 13,
    kSint8 = 16,
    kUint8 = 17,
    kUint16 = 18,
    kUint32 = 19,
    kSint64 = 20,
    kUint64 = 21,
    kDatetime = 101,
    kReference = 102,
    kChar16 = 103,
};

// What a CIM type's values are held as.
enum class Representation { kBoolean, kSigned, kUnsigned, kReal, kText, kObject };

constexpr Representation RepresentationOf(CimType type) noexcept {
    switch (type) {
        case CimType::kBoolean:
            return Representation::kBoolean;
        case CimType::kSint8:
        case CimType::kSint16:
        case CimType::kSint32:
        case CimType::kSint64:
            return Representation::kSigned;
        case CimType::kUint8:
        case CimType::kUint16:
        case CimType::kUint32:
        case CimType::kUint64:
        case CimType::kChar16:
            return Representation::kUnsigned;
        case CimType::kReal32:
        case CimType::kReal64:
            return Representation::kReal;
        case CimType::kString:
        case CimType::kDatetime:
        case CimType::kReference:
            return Representation::kText;
        case CimType::kObject:
            break;
    }
    return Representation::kObject;
}

// Whether `code` (without the array flag) is a CIM type.
bool IsCimType(uint16_t code) noexcept;

// "sint16", "string", "object", ...: the names of DSP0004, with "object" for embedded objects.
std::string_view CimTypeName(CimType type) noexcept;

struct PropertyType {
    CimType type = CimType::kString;
    bool is_array = false;
    uint32_t max_elements = 0;  // declared size of an array; 0 for no bound
    std::string class_name;     // target of a reference, class of an embedded object; empty for any

    // Whether values of one fit the other: the same type and shape, whatever the bound and the class.
    bool SameShape(const PropertyType& other) const noexcept {
        return type == other.type && is_array == other.is_array;
    }
};

// "uint32[8]", "ref:Policy", "object:Schedule[]": for people.
std::string DescribeType(const PropertyType& type);

class Instance;

// An embedded object, shared and never changed.
//
// A type of its own, because of the standard library's variant: GCC 12's takes one whose alternatives are all
// of well-known types for never being without a value, and goes wrong when copying such a one throws.
class ObjectPtr : public std::shared_ptr<const Instance> {
 public:
    using std::shared_ptr<const Instance>::shared_ptr;
    ObjectPtr(std::shared_ptr<const Instance> object) noexcept  // NOLINT(google-explicit-constructor)
        : std::shared_ptr<const Instance>(std::move(object)) {}
};

// std::monostate is null. Signed integers are int64_t, unsigned ones and char16 uint64_t; string, datetime
// and reference are UTF-8 text.
using Scalar = std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, ObjectPtr>;
using Array = std::vector<Scalar>;
using Value = std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, ObjectPtr, Array>;

// A value that stands somewhere else: it is valid as long as what it was read from.
using ValueView = std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string_view,
                               const ObjectPtr*, const Array*>;

ValueView ViewOf(const Value& value);
ValueView ViewOf(const Scalar& value);

// A value of its own with what the view shows.
Value OwnedCopy(const ValueView& view);

inline bool IsNull(const Value& value) noexcept {
    return value.index() == 0;
}
inline bool IsNull(const ValueView& value) noexcept {
    return value.index() == 0;
}

// The inclusive range of an integer type's values; for unsigned types `low` is 0.
struct IntegerRange {
    int64_t low;
    uint64_t high;
};
IntegerRange RangeOf(CimType type) noexcept;

// WBEM_E_TYPE_MISMATCH, with what was found and what was allowed, unless `value` is one that a property of
// `type` may hold: null, or of the type's representation and within its range, a well-formed datetime where
// the type asks for one, an array where it is one and no longer than declared.
Status CheckValue(const PropertyType& type, const Value& value);

// Whether the two are the same value: reals by their bits, embedded objects by their class and properties.
bool SameValue(const Value& a, const Value& b);

// A datetime or interval of DSP0004: 25 characters, "yyyymmddHHMMSS.mmmmmm+UUU" with asterisks for unknown
// fields, or "ddddddddHHMMSS.mmmmmm:000".
bool IsCimDatetime(std::string_view text) noexcept;

}  // namespace service
