// Records: instances as the store's bytes, and back. Only for service/store.
//
//   std::string record;
//   if (Status fault = EncodeInstance(instance, record); !fault.ok()) return fault;
//   Result<Instance> read = DecodeInstance(definition, std::move(record), classes);
//
// The layout stands in record_codec.cpp. Every byte that is read may be wrong: a record that was cut short or
// changed is refused with WBEM_E_CRITICAL_ERROR. All functions may be called from any thread.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "service/model/class_definition.h"
#include "service/model/instance.h"
#include "service/model/status.h"

namespace service {

// Where the class of an embedded object is found when the object is decoded, which may be long after the
// record was read.
class ClassSource {
 public:
    virtual ~ClassSource() = default;
    virtual Result<ClassPtr> FindEmbeddedClass(std::string_view name) const = 0;
};

// Appends the record of `instance` to `record`.
Status EncodeInstance(const Instance& instance, std::string& record);

// The number of the class that the record belongs to; 0 for a damaged record.
uint32_t ClassIdOfRecord(std::string_view record) noexcept;

// Whether the checksum of an instance's record is right.
bool IsWholeRecord(std::string_view record) noexcept;

// Takes the record over after verifying its checksum; its properties are decoded when they are read.
Result<Instance> DecodeInstance(ClassPtr definition, std::string_view record,
                                std::shared_ptr<const ClassSource> classes);

}  // namespace service
