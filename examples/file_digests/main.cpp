// Prints the SHA-256 digest of every file below a folder: one job for each, cancelled together by Ctrl+C.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <format>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "examples/file_digests/checksum_line.h"
#include "examples/file_digests/digest_run.h"
#include "examples/file_digests/file_error.h"
#include "examples/file_digests/file_walk.h"
#include "examples/file_digests/messages.h"
#include "examples/file_digests/options.h"
#include "examples/file_digests/output.h"
#include "examples/file_digests/status_line.h"
#include "examples/file_digests/stop_signal.h"
#include "examples/file_digests/utf8.h"

using namespace FileDigests;

namespace {

enum ExitCode : int { kAllDone = 0, kFailed = 1, kCancelled = 2, kWrongUsage = 64 };

// In a job, so that it can be stopped. Errors: CancelledException if it was stopped.
FileList FindFilesInAJob(const RootFolder& root, const Options& options, const StopSignal& stop, Messages& messages) {
    std::vector<std::wstring_view> leftOut;
    if (!options.folder) {
        leftOut = {L".git", L"build"};
    }
    std::atomic<std::size_t> found = 0;
    const StatusLine status(messages, [&found](int) { return "Looking for files: " + std::to_string(found); });
    const auto find = [&] { return FindFiles(root, leftOut, found); };
    return (options.threads == Threads::kPool ? Orvane::Run(L"Find files", stop.Token(), find)
                                              : Orvane::RunInNewThread(L"Find files", stop.Token(), find))
        .Get();
}

void PrintDigests(const std::vector<FoundFile>& files, const DigestRun& run) {
    constexpr std::size_t kPiece = std::size_t{1} << 16;
    Output output(STD_OUTPUT_HANDLE);
    std::string lines;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (const auto& digest = run.Digests()[i]) {
            lines += ChecksumLine(*digest, files[i].name);
        }
        if (lines.size() >= kPiece || i + 1 == files.size()) {
            output.Write(lines);
            lines.clear();
        }
    }
}

// Says how it went and returns the exit code.
int Conclude(const FileList& list, const DigestRun& run, double seconds, Messages& messages) {
    const std::size_t failed = run.Failed() + list.unreadable.size();
    for (const UnreadableFolder& folder : list.unreadable) {
        messages.Say(ShownName(folder.name) + ": " + folder.error.Message());
    }
    if (list.linksLeftOut != 0) {
        messages.Say(list.linksLeftOut == 1 ? "1 link to a folder not followed"
                                            : std::format("{} links to folders not followed", list.linksLeftOut));
    }
    messages.Say(std::format("{} done, {} failed, {} cancelled; {} read in {:.1f} s", run.Done(), failed,
                             run.Cancelled(), ShownBytes(static_cast<double>(run.BytesRead())), seconds));
    return run.Cancelled() != 0 ? kCancelled : failed != 0 ? kFailed : kAllDone;
}

// Empty if it cannot be opened, which has been said.
std::optional<RootFolder> OpenRoot(const std::wstring& folder, Messages& messages) {
    try {
        return RootFolder(folder);
    } catch (const FileError& error) {
        messages.Say(ShownName(ToUtf8(folder)) + ": " + error.Message());
        return std::nullopt;
    }
}

int Run(const Options& options, Messages& messages) {
    const std::uint64_t startedAt = GetTickCount64();
    const Orvane::ConcurrencyLifetime lifetime;
    const StopSignal stop;
    const auto root = OpenRoot(options.folder.value_or(L"."), messages);
    if (!root) {
        return kFailed;
    }
    const FileList list = FindFilesInAJob(*root, options, stop, messages);
    DigestRun run(*root, list.files, messages);
    run.Run(options.threads, stop.Token(), options.cancelAfter);
    PrintDigests(list.files, run);
    return Conclude(list, run, static_cast<double>(GetTickCount64() - startedAt) / 1000, messages);
}

}  // namespace

// NOLINTNEXTLINE(misc-use-internal-linkage): the runtime calls it
int wmain(int count, wchar_t** arguments) {
    Messages messages;
    try {
        const Options options = ParseOptions(std::span(arguments, static_cast<std::size_t>(count)).subspan(1));
        if (options.help) {
            Output(STD_OUTPUT_HANDLE).Write(HelpText());
            return kAllDone;
        }
        return Run(options, messages);
    } catch (const UsageError& error) {
        messages.Say(error.message + "; --help tells more");
        return kWrongUsage;
    } catch (const Orvane::CancelledException&) {
        messages.Say("cancelled while looking for files");
        return kCancelled;
    } catch (const FileError& error) {
        messages.Say(error.Message());
    } catch (const std::exception& error) {
        messages.Say(error.what());
    }
    return kFailed;
}
