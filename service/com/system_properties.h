// The system properties: those that the service answers itself, whose names begin with two underscores. Only
// for service/com.
//
//   for (size_t i = 0; i < kSystemPropertyCount; ++i) SystemPropertyAt(i).name ...
//   Result<Value> path = ReadSystemProperty(object, *FindSystemProperty(L"__PATH"));
#pragma once

#include <optional>
#include <string_view>

#include "service/model/value.h"

namespace service {

class ClassObject;

struct SystemProperty {
    std::wstring_view name;
    PropertyType type;
};

inline constexpr size_t kSystemPropertyCount = 10;

const SystemProperty& SystemPropertyAt(size_t index) noexcept;

// The index of the system property of that name, without regard to case.
std::optional<size_t> FindSystemProperty(std::wstring_view name);

Result<Value> ReadSystemProperty(const ClassObject& object, size_t index);

}  // namespace service
