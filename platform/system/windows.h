// Umbrella of the system's room.
#pragma once

#include <handleapi.h>
#include <synchapi.h>
#include <winbase.h>
#include <windef.h>
#include <winerror.h>
#include <winnls.h>
