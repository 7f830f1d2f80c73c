// A COM object that is held for a scope.
#pragma once

#include <memory>

namespace Orvane::Internal {

struct ReleaseComObject {
    template <typename Interface>
    void operator()(Interface* object) const {
        object->Release();
    }
};

template <typename Interface>
using ComPointer = std::unique_ptr<Interface, ReleaseComObject>;

}  // namespace Orvane::Internal
