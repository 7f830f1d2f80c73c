#include <ostream>

#include "tests/support/resource_probe.h"

namespace Zarvo::Test {

Resources operator-(const Resources& left, const Resources& right) {
    return {left.handles - right.handles, left.threads - right.threads, left.blocks - right.blocks,
            left.bytes - right.bytes};
}

std::ostream& operator<<(std::ostream& stream, const Resources& resources) {
    return stream << resources.handles << " handles, " << resources.threads << " threads, " << resources.blocks
                  << " blocks, " << resources.bytes << " bytes";
}

}  // namespace Zarvo::Test
