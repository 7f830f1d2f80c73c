#include "tests/support/plain_thread.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "tests/support/eventually.h"

namespace Zarvo::Test {

namespace {

constexpr std::chrono::seconds kPlainThreadLimit{60};

}  // namespace

PlainThread::PlainThread(std::function<void()> body)
    : m_ended(std::make_shared<Gate>()), m_thread([ended = m_ended, body = std::move(body)]() mutable {
          body();
          body = nullptr;
          ended->Open();
      }) {}

PlainThread::~PlainThread() {
    Join();
}

void PlainThread::Join() {
    if (!m_thread.joinable()) {
        return;
    }
    if (!Eventually([this] { return HasEnded(); }, kPlainThreadLimit)) {
        std::fputs("PlainThread: the body has not ended within a minute\n", stderr);
        std::fflush(stderr);
        std::abort();
    }
    m_thread.join();
}

}  // namespace Zarvo::Test
