// Short ways through the store's interface for its tests. Every fault fails the test that calls.
//
//   auto store = OpenStore(directory.path());
//   Put(*store, 1, "key", "record");
//   EXPECT_EQ(Get(*store, 1, "key"), "record");
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/store/store.h"
#include "tests/service/model/model_builders.h"

namespace service {

struct Change {
    uint64_t number;
    ChangeKind kind;
    uint32_t class_id;
    std::string key, before, after;
    friend bool operator==(const Change&, const Change&) = default;
};

inline std::shared_ptr<Store> OpenStore(const std::string& directory, const StoreOptions& options = {}) {
    Result<std::shared_ptr<Store>> store = OpenLmdbStore(directory, options);
    EXPECT_OK(store);
    return store.ok() ? *store : nullptr;
}

inline std::optional<std::string> GetIn(StoreReader& reader, uint32_t class_id, std::string_view key) {
    std::string_view record;
    bool found = false;
    EXPECT_OK(reader.GetInstance(class_id, key, record, found));
    return found ? std::optional<std::string>(record) : std::nullopt;
}

inline Status PutIn(StoreWriter& writer, uint32_t class_id, std::string_view key, std::string_view record) {
    std::string_view before;
    bool found = false;
    SERVICE_RETURN_IF_ERROR(writer.GetInstance(class_id, key, before, found));
    return writer.PutInstance(class_id, key, before, record);
}

inline Status DeleteIn(StoreWriter& writer, uint32_t class_id, std::string_view key) {
    std::string_view before;
    bool found = false;
    SERVICE_RETURN_IF_ERROR(writer.GetInstance(class_id, key, before, found));
    return found ? writer.DeleteInstance(class_id, key, before) : Status();
}

inline void Put(Store& store, uint32_t class_id, std::string_view key, std::string_view record) {
    EXPECT_OK(store.Write([&](StoreWriter& writer) { return PutIn(writer, class_id, key, record); }));
}

inline void Delete(Store& store, uint32_t class_id, std::string_view key) {
    EXPECT_OK(store.Write([&](StoreWriter& writer) { return DeleteIn(writer, class_id, key); }));
}

inline std::optional<std::string> Get(Store& store, uint32_t class_id, std::string_view key) {
    std::optional<std::string> record;
    EXPECT_OK(store.Read([&](StoreReader& reader) {
        record = GetIn(reader, class_id, key);
        return Status();
    }));
    return record;
}

inline std::vector<std::string> Scan(Store& store, uint32_t class_id) {
    std::vector<std::string> records;
    EXPECT_OK(store.Read([&](StoreReader& reader) {
        return reader.ScanInstances(class_id, {}, [&](const InstanceView& found) {
            records.emplace_back(found.record);
            return true;
        });
    }));
    return records;
}

inline std::vector<Change> ChangesAfter(Store& store, uint64_t number, bool* is_complete = nullptr) {
    std::vector<Change> changes;
    EXPECT_OK(store.Read([&](StoreReader& reader) {
        bool complete = false;
        Status fault = reader.ScanChanges(number, complete, [&](const ChangeView& change) {
            changes.push_back({change.number, change.kind, change.class_id, std::string(change.key),
                               std::string(change.before), std::string(change.after)});
            return true;
        });
        if (is_complete) *is_complete = complete;
        return fault;
    }));
    return changes;
}

}  // namespace service
