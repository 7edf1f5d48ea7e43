#include "bench/sqlite_peer.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace bench {
namespace {

void Check(sqlite3* db, int code) {
    if (code == SQLITE_OK || code == SQLITE_DONE || code == SQLITE_ROW) return;
    std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(db));
    std::exit(1);
}

void SetText(_variant_t& variant, const unsigned char* text, int size) {
    BSTR wide = SysAllocStringLen(nullptr, static_cast<UINT>(size));
    for (int i = 0; i < size; ++i)
        wide[i] = static_cast<wchar_t>(text[i]);
    variant.vt = VT_BSTR;
    variant.bstrVal = wide;
}

}  // namespace

SqlitePeer::SqlitePeer(const std::string& directory, int instances) {
    Check(db_, sqlite3_open((directory + "/peer.db").c_str(), &db_));
    Run("PRAGMA journal_mode=WAL");
    Run("PRAGMA synchronous=FULL");
    Run("CREATE TABLE IF NOT EXISTS policy(id TEXT PRIMARY KEY, display_name TEXT, owner TEXT, target_path "
        "TEXT, keep_days "
        "INTEGER,"
        " priority INTEGER, enabled INTEGER, fraction REAL, max_bytes INTEGER, modified TEXT) WITHOUT ROWID");
    Check(db_, sqlite3_prepare_v2(db_, "SELECT * FROM policy WHERE id=?", -1, &select_, nullptr));
    Check(db_,
          sqlite3_prepare_v2(
              db_,
              "INSERT INTO policy VALUES(?,?,?,?,?,?,?,?,?,?) ON CONFLICT(id) DO UPDATE SET"
              " display_name=excluded.display_name, owner=excluded.owner, target_path=excluded.target_path,"
              " keep_days=excluded.keep_days, priority=excluded.priority, enabled=excluded.enabled,"
              " fraction=excluded.fraction, max_bytes=excluded.max_bytes, modified=excluded.modified",
              -1, &upsert_, nullptr));
    sqlite3_stmt* any = nullptr;
    Check(db_, sqlite3_prepare_v2(db_, "SELECT 1 FROM policy LIMIT 1", -1, &any, nullptr));
    const bool is_filled = sqlite3_step(any) == SQLITE_ROW;
    sqlite3_finalize(any);
    if (is_filled) return;
    Run("BEGIN");
    for (int i = 0; i < instances; ++i)
        Write(MakePolicy(i));
    Run("COMMIT");
}

SqlitePeer::~SqlitePeer() {
    sqlite3_finalize(select_);
    sqlite3_finalize(upsert_);
    sqlite3_close(db_);
}

void SqlitePeer::Run(const char* sql) {
    Check(db_, sqlite3_exec(db_, sql, nullptr, nullptr, nullptr));
}

namespace {

// `at(i)` is where the value of property number i belongs.
template <typename At>
void TakeRow(sqlite3_stmt* row, At at) {
    for (const int column : {0, 1, 2, 3, 8, 9}) {
        SetText(at(static_cast<size_t>(column)), sqlite3_column_text(row, column),
                sqlite3_column_bytes(row, column));
    }
    for (const int column : {4, 5}) {
        _variant_t& number = at(static_cast<size_t>(column));
        number.vt = VT_I4;
        number.lVal = sqlite3_column_int(row, column);
    }
    _variant_t& enabled = at(6);
    enabled.vt = VT_BOOL;
    enabled.boolVal = sqlite3_column_int(row, 6) ? VARIANT_TRUE : VARIANT_FALSE;
    _variant_t& fraction = at(7);
    fraction.vt = VT_R8;
    fraction.dblVal = sqlite3_column_double(row, 7);
}

}  // namespace

HandMap SqlitePeer::ReadMap(const std::string& id) {
    sqlite3_bind_text(select_, 1, id.data(), static_cast<int>(id.size()), SQLITE_STATIC);
    Check(db_, sqlite3_step(select_));
    HandMap map;
    TakeRow(select_, [&map](size_t i) -> _variant_t& { return map[kNames[i]]; });
    sqlite3_reset(select_);
    return map;
}

HandList SqlitePeer::ReadAll() {
    sqlite3_stmt* all = nullptr;
    Check(db_, sqlite3_prepare_v2(db_, "SELECT * FROM policy", -1, &all, nullptr));
    HandList list;
    while (sqlite3_step(all) == SQLITE_ROW) {
        HandObject& object = *list.emplace_back(std::make_unique<HandObject>());
        TakeRow(all, [&object](size_t i) -> _variant_t& { return PlaceIn(object, i); });
    }
    sqlite3_finalize(all);
    return list;
}

void SqlitePeer::Bind(const Policy& policy) {
    const auto text = [this](int place, const std::string& value) {
        sqlite3_bind_text(upsert_, place, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
    };
    text(1, policy.id);
    text(2, policy.display_name);
    text(3, policy.owner);
    text(4, policy.target_path);
    sqlite3_bind_int64(upsert_, 5, policy.keep_days);
    sqlite3_bind_int(upsert_, 6, policy.priority);
    sqlite3_bind_int(upsert_, 7, policy.enabled ? 1 : 0);
    sqlite3_bind_double(upsert_, 8, policy.fraction);
    sqlite3_bind_int64(upsert_, 9, static_cast<sqlite3_int64>(policy.max_bytes));
    text(10, policy.modified);
}

void SqlitePeer::Write(const Policy& policy) {
    Bind(policy);
    Check(db_, sqlite3_step(upsert_));
    sqlite3_reset(upsert_);
}

}  // namespace bench
