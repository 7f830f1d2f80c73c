// What the blocks of docs/jobs.md take from their programs.
#pragma once

namespace {

struct File {
    const wchar_t* c_str() const { return L"file"; }
    void Digest() {}
    std::size_t Size() const { return 0; }
};
void Digest(const File&) {}

struct Index {
    void Refresh() {}
};

int Ask(int question) {
    return question;
}
template <typename... Values>
void Show(const Values&...) {}
template <typename... Values>
void ShowProgress(const Values&...) {}
template <typename... Values>
void ShowFailure(const Values&...) {}
void ShowThatTheTimeIsUp() {}
void SayHello() {}
void Transfer() {}
void TellTheServer() {}
void WatchTheEditor() {}
const PROCESS_INFORMATION editor{};
void ShowThatItTakesLong() {}

const std::filesystem::path path;
constexpr int question = 0;
std::vector<File> files;
Index index;
std::mutex mutex;
std::condition_variable_any arrived;
const bool hasData = false;
const HANDLE quit = nullptr;
Orvane::JobGroup group(L"Group");
Orvane::Job<std::string> loadUser;
Orvane::Job<int> loadOrders;
Orvane::Job<void> primary, replica, late, later, job;

}  // namespace
