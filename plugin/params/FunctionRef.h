#pragma once

#include <memory>
#include <type_traits>
#include <utility>

template <class Signature>
class FunctionRef;

/**
 * Refers to a lambda or function for the length of a call: a parameter type with which a function
 * takes a step to run without being a template. Two pointers; owns nothing and never allocates.
 */
template <class Result, class... Args>
class FunctionRef<Result(Args...)> {
public:
    template <class Callable,
              class = std::enable_if_t<!std::is_same_v<std::decay_t<Callable>, FunctionRef>>>
    FunctionRef(const Callable& callable)  // NOLINT(google-explicit-constructor)
        : mCallable(std::addressof(callable)),
          mCall([](const void* target, Args... args) -> Result {
              return (*static_cast<const Callable*>(target))(std::forward<Args>(args)...);
          }) {}

    Result operator()(Args... args) const { return mCall(mCallable, std::forward<Args>(args)...); }

private:
    const void* mCallable;
    Result (*mCall)(const void*, Args...);
};
