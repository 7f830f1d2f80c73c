#include "examples/file_digests/task_window.h"

#include <new>
#include <utility>

#include "concurrency/tasks/make_task.h"
#include "examples/file_digests/file_error.h"

namespace FileDigests {

// Tells the window's owner that a job has ended, however it did.
class TaskWindow::EndNotice {
  public:
    EndNotice(TaskWindow& window, std::size_t id) : m_window(window), m_id(id) {}
    ~EndNotice() {
        {
            const std::lock_guard lock(m_window.m_mutex);
            m_window.m_ended.push_back(m_id);  // has its room
        }
        m_window.m_jobEnded.notify_one();
    }
    EndNotice(const EndNotice&) = delete;
    EndNotice& operator=(const EndNotice&) = delete;

  private:
    TaskWindow& m_window;
    const std::size_t m_id;
};

TaskWindow::TaskWindow(Launch launch, std::size_t limit) : m_launch(launch), m_limit(limit) { m_ended.reserve(limit); }

TaskWindow::~TaskWindow() {
    CancelAll();
    for (auto& [id, inHand] : m_inHand) {
        inHand.task.Wait();
    }
}

void TaskWindow::Start(std::size_t id, const std::wstring& name, std::function<void()> job) {
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> outcome;
    auto task = Orvane::MakeTask(
        name.c_str(),
        [this, id, job = std::move(job)] {
            const EndNotice notice(*this, id);
            try {
                job();
            } catch (const std::bad_alloc&) {
                throw FileError("get memory", ERROR_NOT_ENOUGH_MEMORY);
            }
        },
        outcome);
    const auto entry = m_inHand.emplace(id, InHand{task, std::move(outcome)}).first;
    try {
        m_launch(task);
    } catch (...) {
        m_inHand.erase(entry);
        throw;
    }
}

std::optional<TaskWindow::Ended> TaskWindow::WaitForOne(std::chrono::milliseconds limit) {
    const auto id = NextToEnd(limit);
    if (!id) {
        return std::nullopt;
    }
    Ended ended{*id, nullptr};
    const auto node = m_inHand.extract(*id);
    try {
        node.mapped().outcome->GetValue();
    } catch (...) {
        ended.error = std::current_exception();
    }
    return ended;
}

// A cancelled task may never have started its job and so gives no notice: then they are waited for in turn.
std::optional<std::size_t> TaskWindow::NextToEnd(std::chrono::milliseconds limit) {
    if (m_cancelled) {
        return m_inHand.empty() ? std::nullopt : std::optional(m_inHand.begin()->first);
    }
    std::unique_lock lock(m_mutex);
    if (!m_jobEnded.wait_for(lock, limit, [this] { return !m_ended.empty(); })) {
        return std::nullopt;
    }
    const std::size_t id = m_ended.front();
    m_ended.erase(m_ended.begin());
    return id;
}

void TaskWindow::CancelAll() {
    m_cancelled = true;
    for (auto& [id, inHand] : m_inHand) {
        inHand.task.Cancel();
    }
}

}  // namespace FileDigests
