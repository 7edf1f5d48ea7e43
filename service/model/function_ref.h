// FunctionRef: a callable passed down the stack without owning or allocating anything.
//
//   void ForEach(FunctionRef<bool(std::string_view)> visit);
//   ForEach([&](std::string_view name) { names.push_back(name); return true; });
//
// It refers to the callable it was made from and must not outlive it.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace service {

template <typename Signature>
class FunctionRef;

template <typename R, typename... Arguments>
class FunctionRef<R(Arguments...)> {
 public:
    // NOLINTBEGIN(google-explicit-constructor,bugprone-forwarding-reference-overload)
    template <typename Callable>
    requires(!std::is_same_v<std::remove_cvref_t<Callable>, FunctionRef>) FunctionRef(Callable&& callable)
    noexcept
        : callable_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
          call_([](void* target, Arguments... arguments) -> R {
              return (*static_cast<std::remove_reference_t<Callable>*>(target))(
                  std::forward<Arguments>(arguments)...);
          }) {}
    // NOLINTEND(google-explicit-constructor,bugprone-forwarding-reference-overload)

    R operator()(Arguments... arguments) const {
        return call_(callable_, std::forward<Arguments>(arguments)...);
    }

 private:
    void* callable_;
    R (*call_)(void*, Arguments...);
};

}  // namespace service
