// Post(), and what becomes of failures that no caller reads.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

struct Handed {
    std::wstring name;
    std::string error;
    DWORD thread;
};

std::mutex g_handedMutex;
std::vector<Handed> g_handed;

void KeepFailure(const UnreadFailure& failure) {
    std::string text;
    try {
        std::rethrow_exception(failure.error);
    } catch (const std::exception& error) {
        text = error.what();
    } catch (...) {
        text = "unknown";
    }
    const std::lock_guard lock(g_handedMutex);
    g_handed.push_back({failure.name, text, GetCurrentThreadId()});
}

std::vector<Handed> AllHanded() {
    const std::lock_guard lock(g_handedMutex);
    return g_handed;
}

bool AreHanded(std::size_t count) {
    return Eventually([count] { return AllHanded().size() >= count; });
}

class UnreadFailures : public JobTest {
  protected:
    UnreadFailures() {
        g_handed.clear();
        SetFailureHandler(&KeepFailure);
    }
    ~UnreadFailures() override { SetFailureHandler(nullptr); }

    const std::uint64_t m_before = UnreadFailureCount();
};

class PostedWork : public UnreadFailures {};

TEST_F(PostedWork, Runs) {
    const auto ran = std::make_shared<Gate>();
    Post(L"posted", [](const std::shared_ptr<Gate>& gate) { gate->Open(); }, ran);
    ran->Wait();
    EXPECT_EQ(UnreadFailureCount(), m_before);
}

TEST_F(PostedWork, ThatFailsGoesToTheHandlerTheCountAndTheLog) {
    const RecordedReports reports;
    Post(L"posted", [] { throw std::runtime_error("no luck"); });
    ASSERT_TRUE(AreHanded(1));
    EXPECT_EQ(AllHanded()[0].name, L"posted");
    EXPECT_EQ(AllHanded()[0].error, "no luck");
    EXPECT_NE(AllHanded()[0].thread, GetCurrentThreadId());
    EXPECT_EQ(UnreadFailureCount(), m_before + 1);
    std::size_t lines = 0;
    for (const auto& report : reports.All()) {
        for (const auto& argument : report.arguments) {
            const auto* const text = std::get_if<std::wstring>(&argument);
            lines += text != nullptr && text->find(L"no luck") != std::wstring::npos ? 1 : 0;
        }
    }
    EXPECT_EQ(lines, 1U);
}

TEST_F(PostedWork, MayFailWithAnything) {
    const std::wstring name(1'000, L'n');
    Post(name.c_str(), [] { throw 42; });
    ASSERT_TRUE(AreHanded(1));
    EXPECT_EQ(AllHanded()[0].name, name);
    Post(nullptr, [] { throw CancelRequestedException(); });
    ASSERT_TRUE(AreHanded(2));
    EXPECT_EQ(AllHanded()[1].name, L"");
    EXPECT_EQ(AllHanded()[1].error, "CancelRequestedException");
    Post(L"posted", [] { throw CancelledException(); });
    EXPECT_TRUE(AreHanded(3));
}

TEST_F(PostedWork, HasAHandlerWhoseExceptionIsIgnored) {
    EXPECT_EQ(SetFailureHandler([](const UnreadFailure&) { throw std::logic_error("in the handler"); }), &KeepFailure);
    Post(L"posted", [] { throw 42; });
    EXPECT_TRUE(Eventually([&] { return UnreadFailureCount() == m_before + 1; }));
    auto job = Run(L"dropped", [] { throw 42; });
    job.Wait();
    job = {};
    EXPECT_EQ(UnreadFailureCount(), m_before + 2);
    SetFailureHandler(nullptr);
    Post(L"posted", [] { throw 42; });
    EXPECT_TRUE(Eventually([&] { return UnreadFailureCount() == m_before + 3; }));
}

// No lock of the library is held there.
TEST_F(PostedWork, HasAHandlerThatMayUseTheLibrary) {
    static std::atomic<int> results = 0;
    SetFailureHandler([](const UnreadFailure&) { results += Orvane::Run(L"inner", [] { return 1; }).Get(); });
    Post(L"posted", [] { throw 42; });
    EXPECT_TRUE(Eventually([] { return results == 1; }));
    auto job = Run(L"dropped", [] { throw 42; });
    job.Wait();
    job = {};
    EXPECT_EQ(results, 2);
}

TEST_F(UnreadFailures, OfADroppedJobAreHandedOverByTheThreadThatDrops) {
    auto job = Run(L"dropped", [] { throw std::runtime_error("dropped"); });
    job.Wait();
    EXPECT_EQ(UnreadFailureCount(), m_before);
    job = {};
    ASSERT_EQ(AllHanded().size(), 1U);
    EXPECT_EQ(AllHanded()[0].name, L"dropped");
    EXPECT_EQ(AllHanded()[0].thread, GetCurrentThreadId());
}

TEST_F(UnreadFailures, OfADetachedJobAreHandedOver) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = Run(L"detached", [mayEnd] {
        mayEnd->Wait();
        throw std::runtime_error("detached");
    });
    job.Detach();
    mayEnd->Open();
    ASSERT_TRUE(AreHanded(1));
    auto ended = Run(L"ended", [] { throw std::runtime_error("ended"); });
    ended.Wait();
    ended.Detach();
    ASSERT_EQ(AllHanded().size(), 2U);
    EXPECT_EQ(AllHanded()[1].error, "ended");
}

TEST_F(UnreadFailures, AreNotThoseThatWereRead) {
    {
        auto job = Run(L"read", [] { throw 42; });
        EXPECT_THROW(job.Get(), int);
        auto one = Run(L"read", [] { throw 42; });
        EXPECT_THROW(WhenAll(one), int);
    }
    EXPECT_EQ(UnreadFailureCount(), m_before);
}

TEST_F(UnreadFailures, AreNotCancellationsAndValues) {
    {
        const auto sleeper = RunSleeper();
        const auto value = Run(L"value", [] { return 7; });
        const auto limited = RunSleeper();
        limited.CancelAfter(std::chrono::milliseconds(1));
        limited.Wait();
        value.Wait();
    }
    EXPECT_EQ(UnreadFailureCount(), m_before);
}

}  // namespace
