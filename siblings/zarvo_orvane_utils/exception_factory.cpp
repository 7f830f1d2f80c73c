#include "zarvo_orvane_utils/exception_factory.h"

#include <algorithm>
#include <cwchar>
#include <mutex>
#include <utility>

#include "concurrency/errors/error_storage.h"

namespace Orvane {

namespace {

using Registration = ExceptionFactory::Registration;

// The calls in order are all there is: the newest one for a key is the one that counts.
struct Book {
    std::mutex mutex;
    std::vector<Registration> registrations;  // under mutex
};

// On purpose: never destroyed. Modules register in their static constructors and may throw in their static destructors.
Book& TheBook() {
    static Book& book = *new Book;
    return book;
}

void Note(Registration&& registration) {
    Book& book = TheBook();
    const std::lock_guard lock(book.mutex);
    book.registrations.push_back(std::move(registration));
}

bool SameGuid(const GUID& left, const GUID& right) noexcept {
    return left.Data1 == right.Data1 && left.Data2 == right.Data2 && left.Data3 == right.Data3 &&
           std::ranges::equal(left.Data4, right.Data4);
}

bool SameName(const std::optional<std::wstring>& known, const wchar_t* name) noexcept {
    return known.has_value() ? name != nullptr && *known == name : name == nullptr;
}

bool IsFor(const Registration& registration, const ErrorStorage& error) noexcept {
    if (registration.isNamed != error.isNamed) {
        return false;
    }
    if (error.isNamed) {
        return registration.code == error.code && SameName(registration.name, error.name);
    }
    return registration.code == static_cast<unsigned long>(error.hresult) && SameGuid(registration.guid, error.guid);
}

ExceptionFactory::Thrower FindThrower(const ErrorStorage& error) {
    Book& book = TheBook();
    const std::lock_guard lock(book.mutex);
    const auto newest = std::find_if(book.registrations.rbegin(), book.registrations.rend(),
                                     [&error](const Registration& known) { return IsFor(known, error); });
    return newest != book.registrations.rend() ? newest->thrower : nullptr;
}

}  // namespace

void ExceptionFactory::Register(const GUID& guid, long hresult, Thrower thrower) {
    Note({.isNamed = false, .guid = guid, .name = {}, .code = static_cast<unsigned long>(hresult), .thrower = thrower});
}

void ExceptionFactory::Register(const wchar_t* name, unsigned int code, Thrower thrower) {
    std::optional<std::wstring> copy;
    if (name != nullptr) {
        copy = name;
    }
    Note({.isNamed = true, .guid = {}, .name = std::move(copy), .code = code, .thrower = thrower});
}

void ExceptionFactory::Throw(const ErrorStorage& error) {
    if (const Thrower thrower = FindThrower(error); thrower != nullptr) {
        thrower(error);
    }
    throw ExceptionBase(error);
}

std::vector<Registration> ExceptionFactory::Registrations() {
    Book& book = TheBook();
    const std::lock_guard lock(book.mutex);
    return book.registrations;
}

}  // namespace Orvane
