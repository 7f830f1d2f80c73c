// A static object without a destructor, for what may still be used, or held by a thread that has been killed, when the
// process ends.
//
// Threads: as the object's own.
// Lifetime: until the process has ended, or the module is unloaded. What the object holds then is not released.
#pragma once

#include <utility>

namespace Orvane::Internal {

template <typename T>
class NeverDestroyed {
  public:
    template <typename... Arguments>
    constexpr explicit NeverDestroyed(Arguments&&... arguments) : m_object(std::forward<Arguments>(arguments)...) {}
    // On purpose empty: a union does not destroy its members.
    constexpr ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): that would not compile
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    constexpr T& operator*() noexcept { return m_object; }
    constexpr T* operator->() noexcept { return &m_object; }

  private:
    union {
        T m_object;
    };
};

}  // namespace Orvane::Internal
