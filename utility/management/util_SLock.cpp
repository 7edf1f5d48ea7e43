#include "utility/management/util_SLock.h"

CSLock::CSLock() noexcept {
    InitializeCriticalSection(&m_CriticalSection);
}

CSLock::~CSLock() {
    DeleteCriticalSection(&m_CriticalSection);
}

int CSLock::Lock() noexcept {
    EnterCriticalSection(&m_CriticalSection);
    return 0;
}

int CSLock::Unlock() noexcept {
    LeaveCriticalSection(&m_CriticalSection);
    return 0;
}
