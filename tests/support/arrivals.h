// The order in which things happened on several threads.
//
// Threads: every member may be called from any thread.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Zarvo::Test {

using Names = std::vector<std::string>;

class Arrivals {
  public:
    void Add(std::string name) {
        const std::lock_guard lock(m_mutex);
        m_names.push_back(std::move(name));
    }

    Names List() const {
        const std::lock_guard lock(m_mutex);
        return m_names;
    }

  private:
    mutable std::mutex m_mutex;
    Names m_names;
};

}  // namespace Zarvo::Test
