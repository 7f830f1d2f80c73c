#include "concurrency/cancellation/time_limit_exceptions.h"

#include <array>
#include <cstdint>
#include <new>
#include <utility>

#include "concurrency/base/utf8.h"

namespace Orvane {

namespace Internal {

namespace {

struct Unit {
    std::int64_t nanoseconds;
    const wchar_t* name;
};

constexpr std::array<Unit, 4> kUnits{{{1'000'000'000, L" s"}, {1'000'000, L" ms"}, {1'000, L" us"}, {1, L" ns"}}};

// As in "2 s" or "1.5 ms", with three digits behind the point at most.
std::wstring DurationText(std::chrono::nanoseconds duration) {
    const std::int64_t count = duration.count();
    for (const Unit& unit : kUnits) {
        if (count >= unit.nanoseconds) {
            std::wstring text = std::to_wstring(count / unit.nanoseconds);
            if (const std::int64_t rest = count % unit.nanoseconds * 1000 / unit.nanoseconds; rest != 0) {
                text += L"." + std::to_wstring(1000 + rest).substr(1);
                text.erase(text.find_last_not_of(L'0') + 1);
            }
            return text + unit.name;
        }
    }
    return L"0 s";
}

}  // namespace

std::wstring TimeLimitDetails::Text() const {
    const std::wstring text = L"the time limit of " + DurationText(duration);
    return name.empty() ? text : text + L" of " + name;
}

TimeLimitText::TimeLimitText() noexcept = default;
TimeLimitText::TimeLimitText(const TimeLimitText&) noexcept = default;
TimeLimitText& TimeLimitText::operator=(const TimeLimitText&) noexcept = default;
TimeLimitText::~TimeLimitText() = default;

TimeLimitText::TimeLimitText(const char* kind, std::shared_ptr<const TimeLimitDetails> limit) noexcept
    : m_limit(std::move(limit)) {
    try {
        if (m_limit) {
            m_what = std::make_shared<const std::string>(std::string(kind) + ": " + ToUtf8(m_limit->Text()));
        }
    } catch (const std::bad_alloc&) {
        // On purpose: the limit counts more than its text.
    }
}

const char* TimeLimitText::What() const noexcept {
    return m_what ? m_what->c_str() : nullptr;
}

std::wstring TimeLimitText::Name() const {
    return m_limit ? m_limit->name : std::wstring();
}

std::chrono::nanoseconds TimeLimitText::Duration() const noexcept {
    return m_limit ? m_limit->duration : std::chrono::nanoseconds::zero();
}

}  // namespace Internal

namespace {

constexpr const char* kTimeLimit = "TimeLimitException";
constexpr const char* kTimeLimitRequest = "TimeLimitRequestException";

const char* TextOr(const char* text, const char* otherwise) noexcept {
    return text != nullptr ? text : otherwise;
}

}  // namespace

TimeLimitException::TimeLimitException() = default;
TimeLimitException::TimeLimitException(const TimeLimitException&) = default;
TimeLimitException& TimeLimitException::operator=(const TimeLimitException&) = default;
TimeLimitException::~TimeLimitException() = default;

TimeLimitException::TimeLimitException(std::wstring name, std::chrono::nanoseconds limit)
    : TimeLimitException(std::make_shared<const Internal::TimeLimitDetails>(std::move(name), limit)) {}

TimeLimitException::TimeLimitException(std::shared_ptr<const Internal::TimeLimitDetails> limit)
    : m_text(kTimeLimit, std::move(limit)) {}

std::wstring TimeLimitException::GetName() const {
    return m_text.Name();
}

std::chrono::nanoseconds TimeLimitException::GetLimit() const noexcept {
    return m_text.Duration();
}

const char* TimeLimitException::what() const noexcept {
    return TextOr(m_text.What(), kTimeLimit);
}

std::shared_ptr<CloneableException> TimeLimitException::Clone() const {
    return std::shared_ptr<CloneableException>(new TimeLimitException(*this));
}

void TimeLimitException::Rethrow() const {
    throw TimeLimitException(*this);
}

TimeLimitRequestException::TimeLimitRequestException(const TimeLimitRequestException&) = default;
TimeLimitRequestException& TimeLimitRequestException::operator=(const TimeLimitRequestException&) = default;
TimeLimitRequestException::~TimeLimitRequestException() = default;

TimeLimitRequestException::TimeLimitRequestException(std::shared_ptr<const Internal::TimeLimitDetails> limit)
    : m_text(kTimeLimitRequest, std::move(limit)) {}

std::wstring TimeLimitRequestException::GetName() const {
    return m_text.Name();
}

std::chrono::nanoseconds TimeLimitRequestException::GetLimit() const noexcept {
    return m_text.Duration();
}

const char* TimeLimitRequestException::what() const noexcept {
    return TextOr(m_text.What(), kTimeLimitRequest);
}

}  // namespace Orvane
