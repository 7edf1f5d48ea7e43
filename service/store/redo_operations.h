// The operations of a transaction as the redo slots hold them. Only for service/store.
//
//   if (!AppendOperation(tables, kRedoPut, tables.instances, key, value, operations)) ...   // too large
//   int code = ReplayOperations(txn, tables, operations);
//
//   operations = *( u8 operation, u8 table, u32 length, key, u32 length, value )
//
// Tables are numbered in the order of LmdbTables. Stateless.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <lmdb.h>

#include "service/store/lmdb_tables.h"

namespace service {

inline constexpr uint8_t kRedoPut = 1;
inline constexpr uint8_t kRedoDelete = 2;

// False, with `operations` as they were, when they would not fit a slot any more.
bool AppendOperation(const LmdbTables& tables, uint8_t operation, MDB_dbi table, const MDB_val& key,
                     const MDB_val& value, std::string& operations);

// LMDB's result; MDB_CORRUPTED for what are no operations.
int ReplayOperations(MDB_txn* txn, const LmdbTables& tables, std::string_view operations);

}  // namespace service
