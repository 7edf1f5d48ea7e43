// The peer: the same rows in SQLite, write-ahead log, prepared statements.
#pragma once

#include <string>

#include <sqlite3.h>

#include "bench/lmdb_by_hand.h"

namespace bench {

class SqlitePeer {
 public:
    explicit SqlitePeer(const std::string& directory);
    ~SqlitePeer();
    SqlitePeer(const SqlitePeer&) = delete;
    SqlitePeer& operator=(const SqlitePeer&) = delete;

    HandMap ReadMap(const std::string& id);
    // One upsert, durable when it returns (synchronous=FULL).
    void Write(const Policy& policy);

 private:
    void Run(const char* sql);
    void Bind(const Policy& policy);

    sqlite3* db_ = nullptr;
    sqlite3_stmt* select_ = nullptr;
    sqlite3_stmt* upsert_ = nullptr;
};

}  // namespace bench
