// The floor: the same records in an LMDB of their own, read and written with as little between as possible.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <comutil.h>
#include <lmdb.h>

#include "bench/policy_data.h"

namespace bench {

using HandMap = std::map<std::wstring, _variant_t>;

// The ten properties by hand, as a caller without the library would hold them.
HandMap BuildByHand(const Policy& policy);

// Many of them, in the shape in which the library holds them: each property a record of its own on the heap.
struct HandRecord {
    std::wstring name;
    _variant_t value;
};
using HandObject = std::map<std::wstring, std::unique_ptr<HandRecord>>;
using HandList = std::vector<std::unique_ptr<HandObject>>;

// The place of a property's value in a new object.
_variant_t& PlaceIn(HandObject& object, size_t property);

class LmdbByHand {
 public:
    // Opens what is in `directory`, or puts the policies there.
    explicit LmdbByHand(const std::string& directory, int instances = kInstances);
    ~LmdbByHand();
    LmdbByHand(const LmdbByHand&) = delete;
    LmdbByHand& operator=(const LmdbByHand&) = delete;

    // The record's size; the bare point read.
    size_t Read(const std::string& id);
    // The point read, decoded.
    HandMap ReadMap(const std::string& id);
    // All records, decoded one after another.
    HandList ReadAll();
    // One durable commit of one record.
    void Write(const Policy& policy);

 private:
    std::string_view Find(const std::string& id);

    MDB_env* env_ = nullptr;
    MDB_txn* reader_ = nullptr;
    MDB_dbi table_ = 0;
};

}  // namespace bench
