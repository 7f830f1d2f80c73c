// What nearly every test includes, compiled once for all test programs. Each file still includes what it uses itself.
// Nothing of the library but its way of including windows.h: an edit of a header must not compile all tests anew.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"

#include <gtest/gtest.h>
