// The floor: the same records in an LMDB of their own, read and written with as little between as possible.
#pragma once

#include <map>
#include <string>

#include <comutil.h>
#include <lmdb.h>

#include "bench/policy_data.h"

namespace bench {

using HandMap = std::map<std::wstring, _variant_t>;

// The ten properties by hand, as a caller without the library would hold them.
HandMap BuildByHand(const Policy& policy);

class LmdbByHand {
 public:
    explicit LmdbByHand(const std::string& directory);
    ~LmdbByHand();
    LmdbByHand(const LmdbByHand&) = delete;
    LmdbByHand& operator=(const LmdbByHand&) = delete;

    // The record's size; the bare point read.
    size_t Read(const std::string& id);
    // The point read, decoded.
    HandMap ReadMap(const std::string& id);
    // One durable commit of one record.
    void Write(const Policy& policy);

 private:
    std::string_view Find(const std::string& id);

    MDB_env* env_ = nullptr;
    MDB_txn* reader_ = nullptr;
    MDB_dbi table_ = 0;
};

}  // namespace bench
