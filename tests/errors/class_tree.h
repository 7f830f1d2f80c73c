// What a class tree means to its users.
#pragma once

#include <type_traits>

namespace Zarvo::Test {

// Whether `action` throws something that a handler for `Base` catches.
template <typename Base, typename Action>
bool IsCaughtAs(Action action) {
    try {
        action();
    } catch (const Base&) {
        return true;
    } catch (...) {
        return false;
    }
    return false;
}

// Where a static cast back down is refused, the base is virtual.
template <typename Base, typename Derived>
constexpr bool kIsVirtualBase =
    std::is_base_of_v<Base, Derived> && !requires(Base* base) { static_cast<Derived*>(base); };

}  // namespace Zarvo::Test
