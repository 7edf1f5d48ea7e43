// Whether the calling thread has initialised COM. For the files of this folder only.
//
//   if (!mgmt_platform::IsComInitialized()) return CO_E_NOTINITIALIZED;
#pragma once

namespace mgmt_platform {

// Each thread speaks for itself: another thread's initialisation does not count.
bool IsComInitialized() noexcept;

}  // namespace mgmt_platform
