// AbsentStore: what is read of a store that nobody has written to yet. Only for service/store.
//
//   AbsentStore reader;
//   return read(reader);
//
// Everything is asked for and nothing is found. Stateless.
#pragma once

#include <string>
#include <string_view>

#include "service/store/store.h"

namespace service {

class AbsentStore final : public StoreReader {
 public:
    uint64_t StateNumber() const noexcept override { return 0; }
    Status SchemaGeneration(uint64_t& generation) override { return generation = 0, Status(); }
    Status GetSchema(std::string_view, std::string_view&, bool& found) override {
        return found = false, Status();
    }
    Status ScanSchema(std::string_view, FunctionRef<bool(std::string_view, std::string_view)>) override {
        return {};
    }
    Status ScanAllSchema(FunctionRef<bool(std::string_view, std::string_view)>) override { return {}; }
    Status LastId(uint32_t& id) override { return id = 0, Status(); }
    Status GetInstance(uint32_t, std::string_view, std::string_view&, bool& found) override {
        return found = false, Status();
    }
    std::string PlaceOf(uint32_t, std::string_view key) const override { return std::string(key); }
    Status ScanInstances(uint32_t, std::string_view, FunctionRef<bool(const InstanceView&)>) override {
        return {};
    }
    Status ScanAllInstances(FunctionRef<bool(uint32_t, const InstanceView&, bool)>) override { return {}; }
    Status LastChange(uint64_t& number) override { return number = 0, Status(); }
    Status ScanChanges(uint64_t, bool& is_complete, FunctionRef<bool(const ChangeView&)>) override {
        return is_complete = true, Status();
    }
    Status ScanLog(FunctionRef<bool(uint64_t, const ChangeView*)>) override { return {}; }
};

}  // namespace service
