// MGMT_PLATFORM_API marks what the platform library exports: functions, data, and classes that are thrown or
// caught across libraries. Everything else stays hidden.
#pragma once

#define MGMT_PLATFORM_API __attribute__((visibility("default")))
