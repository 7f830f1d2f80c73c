// What a short spin does between two looks.
#pragma once

#include <immintrin.h>

namespace Orvane::Internal {

inline void Pause() noexcept {
    _mm_pause();
}

}  // namespace Orvane::Internal
