// The type of what a cloneable exception rethrows; void if it throws nothing.
#pragma once

#include <exception>
#include <typeinfo>

#include "concurrency/cancellation/cloneable_exception.h"

namespace Zarvo::Test {

inline const std::type_info& KindRethrownBy(const Orvane::CloneableException& exception) {
    try {
        exception.Rethrow();
    } catch (const std::exception& thrown) {
        return typeid(thrown);
    }
    return typeid(void);
}

}  // namespace Zarvo::Test
