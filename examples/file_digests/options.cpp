#include "examples/file_digests/options.h"

#include <algorithm>

#include "examples/file_digests/checksum_line.h"
#include "examples/file_digests/utf8.h"

namespace FileDigests {

namespace {

// 11.6 days.
constexpr std::size_t kMostDigits = 9;

[[noreturn]] void Fail(const std::string& problem, std::wstring_view culprit) {
    throw UsageError{problem + " '" + ShownName(ToUtf8(culprit)) + "'"};
}

std::chrono::milliseconds ParseMilliseconds(std::wstring_view text) {
    const bool digits = std::all_of(text.begin(), text.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; });
    if (text.empty() || text.size() > kMostDigits || !digits) {
        Fail("--cancel-after wants a number of milliseconds, not", text);
    }
    return std::chrono::milliseconds(std::stol(std::wstring(text)));
}

Threads ParseThreads(std::wstring_view text) {
    if (text == L"pool") {
        return Threads::kPool;
    }
    if (text == L"dedicated") {
        return Threads::kDedicated;
    }
    Fail("--threads is pool or dedicated, not", text);
}

class Parser {
  public:
    explicit Parser(std::span<const wchar_t* const> arguments) : m_rest(arguments) {}

    Options Parse() {
        while (!m_rest.empty()) {
            const std::wstring_view argument = Take();
            if (argument == L"--") {
                while (!m_rest.empty()) {
                    SetFolder(Take());
                }
            } else if (argument.starts_with(L"-") && argument != L"-") {
                ParseOption(argument);
            } else {
                SetFolder(argument);
            }
        }
        return m_options;
    }

  private:
    std::wstring_view Take() {
        const wchar_t* const first = m_rest.front();
        m_rest = m_rest.subspan(1);
        return first;
    }

    // "--name value" or "--name=value".
    void ParseOption(std::wstring_view argument) {
        const std::size_t equals = argument.find(L'=');
        const std::wstring_view name = argument.substr(0, equals);
        const bool hasValue = equals != std::wstring_view::npos;
        const auto value = [&] {
            if (hasValue) {
                return argument.substr(equals + 1);
            }
            if (m_rest.empty()) {
                Fail("a value is missing after", name);
            }
            return Take();
        };
        if (name == L"--cancel-after") {
            m_options.cancelAfter = ParseMilliseconds(value());
        } else if (name == L"--threads") {
            m_options.threads = ParseThreads(value());
        } else if ((name == L"--help" || name == L"-h") && !hasValue) {
            m_options.help = true;
        } else {
            Fail("unknown option", argument);
        }
    }

    void SetFolder(std::wstring_view folder) {
        if (folder.empty()) {
            throw UsageError{"the folder's name is empty"};
        }
        if (m_options.folder) {
            Fail("one folder is enough, the second is", folder);
        }
        m_options.folder = folder;
    }

    std::span<const wchar_t* const> m_rest;
    Options m_options;
};

}  // namespace

Options ParseOptions(std::span<const wchar_t* const> arguments) {
    return Parser(arguments).Parse();
}

std::string_view HelpText() {
    return R"(usage: file_digests [OPTIONS] [FOLDER]

Prints the SHA-256 digest of every file below FOLDER, sorted by path, in the form that `sha256sum --check` reads when
it runs in FOLDER. Without FOLDER: the current directory, except the folders .git and build directly in it.

  --cancel-after MS          cancel what is not done MS milliseconds after the files were found
  --threads pool|dedicated   run each file's task on the thread pool (default) or on a thread of its own
  --help                     this text

Ctrl+C cancels too: what is done is printed, and pressed a second time it ends the program at once.
On a console a status line shows the progress. Problems and a summary go to standard error.

Exit code: 0 all digested, 1 something could not be read, 2 cancelled, 64 wrong usage.

Names are written in UTF-8; an unpaired surrogate becomes the three bytes of its code point. Links to files are read,
links to folders are not followed.
)";
}

}  // namespace FileDigests
