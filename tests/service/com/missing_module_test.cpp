// In a process of its own, in which no other test has loaded the module.
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

using MissingModuleTest = ServiceClient;

TEST_F(MissingModuleTest, IsAStatusUntilTheModuleIsThere) {
    setenv("MGMT_SERVICE_MODULE", (directory.path() + "/none.so").c_str(), 1);
    ServicesPointer connected;
    EXPECT_CODE(REGDB_E_CLASSNOTREG, Connect(L"root", connected));
    EXPECT_THAT(TakeReason(), testing::HasSubstr("none.so"));
    EXPECT_FALSE(connected.p);
    unsetenv("MGMT_SERVICE_MODULE");
    EXPECT_CODE(S_OK, Connect(L"root", connected));
}

}  // namespace
