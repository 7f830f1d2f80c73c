// Ends a job that keeps an object whose destructor throws.
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/gate.h"

namespace {

// Only the last one of those that were moved on.
class Throws {
  public:
    Throws() = default;
    Throws(Throws&& other) noexcept : m_isLast(std::exchange(other.m_isLast, false)) {}
    Throws& operator=(Throws&&) = delete;
    ~Throws() noexcept(false) {
        if (m_isLast) {
            std::printf("it throws");
            std::fflush(stdout);
            throw 1;
        }
    }

    void operator()() const {}

  private:
    bool m_isLast = true;
};

// The destructor throws where the job destroys it, though the value has been moved out.
class ThrowsAfterAMove {
  public:
    ThrowsAfterAMove() = default;
    ThrowsAfterAMove(ThrowsAfterAMove&& other) noexcept : m_throws(false) { other.m_throws = true; }
    ThrowsAfterAMove& operator=(ThrowsAfterAMove&&) = delete;
    ~ThrowsAfterAMove() noexcept(false) {
        if (m_throws) {
            std::printf("it throws");
            std::fflush(stdout);
            throw 1;
        }
    }

  private:
    bool m_throws = false;
};

}  // namespace

int main(int count, char** values) {
    const std::string mode = count > 1 ? values[1] : "";
    const Orvane::ConcurrencyLifetime lifetime;
    if (mode == "a callable") {
        Orvane::Run(L"job", Throws()).Wait();
    } else if (mode == "a result that was taken") {
        auto job = Orvane::Run(L"job", [] { return ThrowsAfterAMove(); });
        static_cast<void>(job.Get());
    } else if (mode == "a result that was not read") {
        const auto job = Orvane::Run(L"job", [] { return Throws(); });
        job.Wait();
    } else {
        const auto isDetached = std::make_shared<Zarvo::Test::Gate>();
        const auto begun = std::make_shared<Zarvo::Test::Gate>();
        auto job = Orvane::Run(L"job", [=] {
            begun->Open();
            isDetached->Wait();
            return Throws();
        });
        begun->Wait();
        job.Detach();
        isDetached->Open();
    }
    return 0;
}
