#include "service/store/redo_operations.h"

#include <algorithm>
#include <array>

#include "service/store/bytes.h"
#include "service/store/redo_slots.h"

namespace service {
namespace {

std::array<MDB_dbi, 4> Numbered(const LmdbTables& tables) noexcept {
    return {tables.meta, tables.schema, tables.instances, tables.log};
}

}  // namespace

bool AppendOperation(const LmdbTables& tables, uint8_t operation, MDB_dbi table, const MDB_val& key,
                     const MDB_val& value, std::string& operations) {
    constexpr size_t kOverhead = 16;
    if (operations.size() + kOverhead + key.mv_size + value.mv_size > RedoSlots::kCapacity) return false;
    const std::array<MDB_dbi, 4> numbered = Numbered(tables);
    const auto number = std::find(numbered.begin(), numbered.end(), table) - numbered.begin();
    ByteWriter out(operations);
    out.U8(operation);
    out.U8(static_cast<uint8_t>(number));
    out.Text(ViewOf(key));
    out.Text(ViewOf(value));
    return true;
}

int ReplayOperations(MDB_txn* txn, const LmdbTables& tables, std::string_view operations) {
    const std::array<MDB_dbi, 4> numbered = Numbered(tables);
    ByteReader in(operations);
    int code = 0;
    while (code == 0 && !in.AtEnd()) {
        const uint8_t operation = in.U8();
        const uint8_t number = in.U8();
        MDB_val key = ValueOf(in.Text());
        MDB_val value = ValueOf(in.Text());
        if (!in.ok() || number >= numbered.size()) return MDB_CORRUPTED;
        const MDB_dbi table = numbered[number];
        if (operation == kRedoPut) code = mdb_put(txn, table, &key, &value, 0);
        if (operation == kRedoDelete) code = mdb_del(txn, table, &key, nullptr);
        if (code == MDB_NOTFOUND) code = 0;
    }
    return code;
}

}  // namespace service
