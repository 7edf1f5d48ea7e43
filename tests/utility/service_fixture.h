// The surroundings of tests that need a management service: COM on the thread, a service in memory with one
// class, and a fresh default scope. Afterwards nothing that the service handed out may be left.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/doubles/fake_service.h"
#include "utility/management/mgmt.h"

class ServiceTest : public ::testing::Test {
 protected:
    void SetUp() override {
        service.AddClass(L"Cls", {{L"INSTANCE_ID", CIM_STRING},
                                  {L"DisplayName", CIM_STRING},
                                  {L"KeepDays", CIM_UINT32, _variant_t(7L)},
                                  {L"Enabled", CIM_BOOLEAN},
                                  {L"Ratio", CIM_REAL32},
                                  {L"Changed", CIM_DATETIME}});
        MgmtInitialize(L"\\\\.\\root\\Test");
    }

    void TearDown() override {
        MgmtUninitialize();
        EXPECT_EQ(service.LiveObjects(), 1) << "only the registered class object may be left";
    }

    // The requests since the last call, without those that fetch and step through properties.
    std::vector<std::wstring> Requests() {
        std::vector<std::wstring> requests = service.TakeRequests();
        std::erase_if(requests, [](const std::wstring& request) {
            return request == L"Next" || request == L"Next with type" || request == L"EndEnumeration" ||
                   request == L"BeginEnumeration 64";
        });
        return requests;
    }

    // What is asked on the way to a connection, and then `requests`.
    static std::vector<std::wstring> AfterConnecting(std::vector<std::wstring> requests) {
        requests.insert(requests.begin(),
                        {L"CreateLocator", L"ConnectServer \\\\.\\root\\Test", L"SetBlanket"});
        return requests;
    }

    doubles::ComThread comThread;
    doubles::FakeService service;
};

inline std::wstring TextOf(const VARIANT& value) {
    if (value.vt != VT_BSTR) return L"(no text but type " + std::to_wstring(value.vt) + L")";
    return {value.bstrVal, SysStringLen(value.bstrVal)};
}

inline std::wstring TextOf(const _variant_t* value) {
    return value != nullptr ? TextOf(static_cast<const VARIANT&>(*value)) : L"(null)";
}

inline _variant_t NullValue() {
    return doubles::Property::Null();
}

inline _variant_t DateValue(double date) {
    return {date, VT_DATE};
}
