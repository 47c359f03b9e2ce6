#pragma once
// A non-owning reference to something callable: two pointers, no allocation, for a callback
// that is only called while the call that takes it runs.

#include <type_traits>
#include <utility>

namespace billdata::util {

template <class Signature>
class FunctionRef;

template <class R, class... Args>
class FunctionRef<R(Args...)> {
  public:
    template <class F, class = std::enable_if_t<!std::is_same_v<std::decay_t<F>, FunctionRef> &&
                                                std::is_invocable_r_v<R, F&, Args...>>>
    FunctionRef(F&& f)  // NOLINT: converts like std::function
        : object_(const_cast<void*>(static_cast<const void*>(&f))),
          call_([](void* object, Args... args) -> R {
              return (*static_cast<std::remove_reference_t<F>*>(object))(
                  std::forward<Args>(args)...);
          }) {}

    R operator()(Args... args) const { return call_(object_, std::forward<Args>(args)...); }

  private:
    void* object_;
    R (*call_)(void*, Args...);
};

}  // namespace billdata::util
