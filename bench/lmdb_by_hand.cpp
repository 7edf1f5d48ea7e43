// A record is the ten values one after another: texts with their length in 32 bits, numbers as they are.
#include "bench/lmdb_by_hand.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace bench {
namespace {

void Check(int code) {
    if (code == 0) return;
    std::fprintf(stderr, "lmdb: %s\n", mdb_strerror(code));
    std::exit(1);
}

template <typename T>
void Append(std::string& out, T value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void AppendText(std::string& out, const std::string& text) {
    Append(out, static_cast<uint32_t>(text.size()));
    out += text;
}

std::string Encode(const Policy& policy) {
    std::string out;
    AppendText(out, policy.id);
    AppendText(out, policy.display_name);
    AppendText(out, policy.owner);
    AppendText(out, policy.target_path);
    Append(out, policy.keep_days);
    Append(out, policy.priority);
    Append(out, policy.enabled);
    Append(out, policy.fraction);
    Append(out, policy.max_bytes);
    AppendText(out, policy.modified);
    return out;
}

template <typename T>
T Take(std::string_view& bytes) {
    T value;
    std::memcpy(&value, bytes.data(), sizeof value);
    bytes.remove_prefix(sizeof value);
    return value;
}

void SetText(_variant_t& variant, std::string_view text) {
    BSTR wide = SysAllocStringLen(nullptr, static_cast<UINT>(text.size()));
    for (size_t i = 0; i < text.size(); ++i)
        wide[i] = static_cast<wchar_t>(text[i]);
    variant.vt = VT_BSTR;
    variant.bstrVal = wide;
}

void TakeText(_variant_t& variant, std::string_view& bytes) {
    const auto size = Take<uint32_t>(bytes);
    SetText(variant, bytes.substr(0, size));
    bytes.remove_prefix(size);
}

void TakeNumber(_variant_t& variant, LONG number) {
    variant.vt = VT_I4;
    variant.lVal = number;
}

// `at(i)` is where the value of property number i belongs.
template <typename At>
void DecodeInto(std::string_view bytes, At at) {
    for (size_t i = 0; i < 4; ++i)
        TakeText(at(i), bytes);
    TakeNumber(at(4), static_cast<LONG>(Take<uint32_t>(bytes)));
    TakeNumber(at(5), Take<int32_t>(bytes));
    _variant_t& enabled = at(6);
    enabled.vt = VT_BOOL;
    enabled.boolVal = Take<bool>(bytes) ? VARIANT_TRUE : VARIANT_FALSE;
    _variant_t& fraction = at(7);
    fraction.vt = VT_R8;
    fraction.dblVal = Take<double>(bytes);
    char digits[24];
    const int count =
        std::snprintf(digits, sizeof digits, "%llu", static_cast<unsigned long long>(Take<uint64_t>(bytes)));
    SetText(at(8), {digits, static_cast<size_t>(count)});
    TakeText(at(9), bytes);
}

HandMap Decode(std::string_view bytes) {
    HandMap map;
    DecodeInto(bytes, [&map](size_t i) -> _variant_t& { return map[kNames[i]]; });
    return map;
}

}  // namespace

HandMap BuildByHand(const Policy& policy) {
    return Decode(Encode(policy));
}

_variant_t& PlaceIn(HandObject& object, size_t property) {
    std::unique_ptr<HandRecord>& record = object[kNames[property]];
    record = std::make_unique<HandRecord>();
    record->name = kNames[property];
    return record->value;
}

LmdbByHand::LmdbByHand(const std::string& directory, int instances) {
    Check(mdb_env_create(&env_));
    Check(mdb_env_set_mapsize(env_, size_t{4} << 30));
    Check(mdb_env_open(env_, directory.c_str(), MDB_NOTLS, 0600));
    MDB_txn* txn = nullptr;
    Check(mdb_txn_begin(env_, nullptr, 0, &txn));
    Check(mdb_dbi_open(txn, nullptr, 0, &table_));
    MDB_stat facts{};
    Check(mdb_stat(txn, table_, &facts));
    for (int i = facts.ms_entries == 0 ? 0 : instances; i < instances; ++i) {
        const Policy policy = MakePolicy(i);
        const std::string record = Encode(policy);
        MDB_val key{policy.id.size(), const_cast<char*>(policy.id.data())};
        MDB_val value{record.size(), const_cast<char*>(record.data())};
        Check(mdb_put(txn, table_, &key, &value, 0));
    }
    Check(mdb_txn_commit(txn));
    Check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &reader_));
    mdb_txn_reset(reader_);
}

LmdbByHand::~LmdbByHand() {
    mdb_txn_abort(reader_);
    mdb_env_close(env_);
}

std::string_view LmdbByHand::Find(const std::string& id) {
    MDB_val key{id.size(), const_cast<char*>(id.data())}, value{};
    Check(mdb_get(reader_, table_, &key, &value));
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

size_t LmdbByHand::Read(const std::string& id) {
    Check(mdb_txn_renew(reader_));
    const size_t size = Find(id).size();
    mdb_txn_reset(reader_);
    return size;
}

HandMap LmdbByHand::ReadMap(const std::string& id) {
    Check(mdb_txn_renew(reader_));
    HandMap map = Decode(Find(id));
    mdb_txn_reset(reader_);
    return map;
}

HandList LmdbByHand::ReadAll() {
    Check(mdb_txn_renew(reader_));
    MDB_cursor* cursor = nullptr;
    Check(mdb_cursor_open(reader_, table_, &cursor));
    HandList list;
    MDB_val key{}, value{};
    while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == 0) {
        HandObject& object = *list.emplace_back(std::make_unique<HandObject>());
        DecodeInto({static_cast<const char*>(value.mv_data), value.mv_size},
                   [&object](size_t i) -> _variant_t& { return PlaceIn(object, i); });
    }
    mdb_cursor_close(cursor);
    mdb_txn_reset(reader_);
    return list;
}

void LmdbByHand::Write(const Policy& policy) {
    const std::string record = Encode(policy);
    MDB_txn* txn = nullptr;
    Check(mdb_txn_begin(env_, nullptr, 0, &txn));
    MDB_val key{policy.id.size(), const_cast<char*>(policy.id.data())};
    MDB_val value{record.size(), const_cast<char*>(record.data())};
    Check(mdb_put(txn, table_, &key, &value, 0));
    Check(mdb_txn_commit(txn));
}

}  // namespace bench
