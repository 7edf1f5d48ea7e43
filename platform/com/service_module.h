// The management service's module, loaded when its first class object is asked for. For the files of this
// folder only.
//
//   HRESULT hr = mgmt_platform::GetModuleClassObject(clsid, riid, &class_object);
//
// Any thread, also several at once. Once loaded the module stays until the process ends; a load that failed
// is tried again by the next call.
#pragma once

#include <unknwn.h>

namespace mgmt_platform {

// What the module's DllGetClassObject answers. Without a module REGDB_E_CLASSNOTREG, with a module that has
// no such function CO_E_ERRORINDLL; the thread's error object then says which file and why.
HRESULT GetModuleClassObject(REFCLSID clsid, REFIID riid, void** out) noexcept;

}  // namespace mgmt_platform
