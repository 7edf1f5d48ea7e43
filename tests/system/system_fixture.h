// A store of its own for one test, and a thread that may use the library.
#pragma once

#include <csignal>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/service/temporary_directory.h"
#include "tests/system/library_calls.h"
#include "tests/system/worker_process.h"

class SystemTest : public testing::Test {
 protected:
    SystemTest() {
        std::signal(SIGPIPE, SIG_IGN);
        setenv("MGMT_STORE", store.c_str(), 1);
        MgmtInitialize(L"\\\\.\\root\\Vantrel\\Halvenor");  // a scope that is not connected yet
    }
    ~SystemTest() override {
        MgmtUninitialize();
        unsetenv("MGMT_STORE");
    }

    TemporaryDirectory directory;
    const std::string store = directory.path() + "/store";
    const ComThread com;
};
