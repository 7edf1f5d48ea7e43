// NoDestructor<T>: a static object that is never destroyed, because code may still use it while the process
// ends and other static objects are destroyed.
//
//   static NoDestructor<Registry> registry;
//   registry->mutex.lock();
#pragma once

#include <new>
#include <utility>

namespace service {

template <typename T>
class NoDestructor {
 public:
    template <typename... Arguments>
    explicit NoDestructor(Arguments&&... arguments) {
        ::new (static_cast<void*>(storage_)) T(std::forward<Arguments>(arguments)...);
    }
    NoDestructor(const NoDestructor&) = delete;
    NoDestructor& operator=(const NoDestructor&) = delete;

    T& operator*() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() noexcept { return &**this; }

 private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace service
