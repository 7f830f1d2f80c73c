// The part of a job that is compiled into the caller's module: the callable with its arguments, the result, and the four
// functions that know their types. The library makes the storage, and calls the functions.
//
// Not for callers.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "concurrency/jobs/this_module.h"

namespace Orvane::Internal {

struct JobBodyType {
    std::size_t size;
    std::size_t alignment;
    bool hasResult;
    ModuleLedger& (*module)();  // that all of it is compiled into
    void (*invoke)(void* body);  // leaves the result in the body, or throws
    void* (*result)(void* body) noexcept;
    void (*destroyCall)(void* body);  // throws what the destructor throws
    void (*destroyResult)(void* body);
};

// How a result is kept: a reference as a pointer, nothing as an empty object.
template <typename Result>
struct KeptResult {
    using Type = std::remove_const_t<Result>;
};
template <typename Result>
struct KeptResult<Result&> {
    using Type = Result*;
};
template <>
struct KeptResult<void> {
    struct Type {};
};

template <typename F, typename... Arguments>
class JobBody {
  public:
    using Result = std::invoke_result_t<F, Arguments...>;
    using Kept = typename KeptResult<Result>::Type;

    static_assert(!std::is_rvalue_reference_v<Result>, "a job cannot return an rvalue reference: return a value");

    template <typename... Values>
    explicit JobBody(Values&&... values) : m_call(std::forward<Values>(values)...) {}

    // On purpose empty: each part is destroyed by its own function.
    ~JobBody() {}  // NOLINT(modernize-use-equals-default): that would not compile
    JobBody(const JobBody&) = delete;
    JobBody& operator=(const JobBody&) = delete;

    ORVANE_OF_THIS_MODULE static const JobBodyType& Type() noexcept {
        static constexpr JobBodyType kType{sizeof(JobBody),     alignof(JobBody), !std::is_void_v<Result>,
                                           &LedgerOfThisModule, &Invoke,          &ResultOf,
                                           &DestroyCall,        &DestroyResult};
        return kType;
    }

  private:
    static void Invoke(void* body) {
        auto& self = *static_cast<JobBody*>(body);
        const auto call = [&self]() -> Result {
            return std::apply([](auto&&... parts) -> Result { return std::invoke(std::move(parts)...); },
                              std::move(self.m_call));
        };
        if constexpr (std::is_void_v<Result>) {
            call();
            std::construct_at(&self.m_result);
        } else if constexpr (std::is_reference_v<Result>) {
            std::construct_at(&self.m_result, std::addressof(call()));
        } else {
            ::new (static_cast<void*>(std::addressof(self.m_result))) Kept(call());
        }
    }
    static void* ResultOf(void* body) noexcept { return std::addressof(static_cast<JobBody*>(body)->m_result); }
    static void DestroyCall(void* body) { std::destroy_at(&static_cast<JobBody*>(body)->m_call); }
    static void DestroyResult(void* body) { std::destroy_at(static_cast<Kept*>(ResultOf(body))); }

    union {
        std::tuple<F, Arguments...> m_call;
    };
    union {
        Kept m_result;
    };
};

}  // namespace Orvane::Internal
