// The records of classes and of qualifiers' declarations as the store's bytes, and back. Only for
// service/store.
//
//   std::string bytes;
//   if (Status fault = EncodeClass({id, declaration}, bytes); !fault.ok()) return fault;
//   Result<ClassRecord> read = DecodeClass(bytes);
//
// The layout stands in schema_codec.cpp. Every byte that is read may be wrong: a record that was cut short or
// changed is refused with WBEM_E_CRITICAL_ERROR. All functions may be called from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "service/model/class_definition.h"
#include "service/model/status.h"

namespace service {

struct ClassRecord {
    uint32_t class_id = 0;
    ClassDeclaration declaration;
};

// Append to `bytes`.
Status EncodeClass(const ClassRecord& record, std::string& bytes);
Status EncodeQualifierDeclaration(const QualifierDeclaration& declaration, std::string& bytes);

Result<ClassRecord> DecodeClass(std::string_view bytes);
Result<QualifierDeclaration> DecodeQualifierDeclaration(std::string_view bytes);

}  // namespace service
