// The peer: the same rows in SQLite, write-ahead log, prepared statements.
#pragma once

#include <string>

#include <sqlite3.h>

#include "bench/lmdb_by_hand.h"

namespace bench {

class SqlitePeer {
 public:
    // Opens what is in `directory`, or puts the policies there.
    explicit SqlitePeer(const std::string& directory, int instances = kInstances);
    ~SqlitePeer();
    SqlitePeer(const SqlitePeer&) = delete;
    SqlitePeer& operator=(const SqlitePeer&) = delete;

    HandMap ReadMap(const std::string& id);
    // All rows, one after another.
    HandList ReadAll();
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
