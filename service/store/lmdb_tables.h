// LMDB's values as views, and the tables of a store. Only for service/store.
//
//   MDB_val k = ValueOf(key), v{};
//   if (mdb_get(txn, tables.schema, &k, &v) == 0) record = ViewOf(v);
#pragma once

#include <string_view>

#include <lmdb.h>

namespace service {

// Bytes as LMDB takes and gives them; it does not change those it is given.
inline MDB_val ValueOf(std::string_view bytes) noexcept {
    return {bytes.size(), const_cast<char*>(bytes.data())};
}
inline std::string_view ViewOf(const MDB_val& value) noexcept {
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

struct LmdbTables {
    MDB_dbi meta = 0;
    MDB_dbi schema = 0;
    MDB_dbi instances = 0;
    MDB_dbi log = 0;
    MDB_dbi redo = 0;
};

}  // namespace service
