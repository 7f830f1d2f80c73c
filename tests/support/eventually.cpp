#include "tests/support/eventually.h"

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

void PauseBriefly() {
    ::Sleep(1);
}

}  // namespace Zarvo::Test
