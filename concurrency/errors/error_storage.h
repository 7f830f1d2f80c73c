// The error record that crosses threads and modules, and the base of every exception that carries one.
//
// Header only: the utilities library, which the concurrency library links, reads the record as well, and neither may
// need the other's code for it.
//
// Contract: an exception.
// Lifetime: in the named form `name` is borrowed, not copied: it must outlive every copy of the record.
#pragma once

#include <guiddef.h>

#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <stdexcept>

// Not for callers.
//
// A structure without a name, whose fields are those of the class around it: every compiler has them, the standard does not.
#if defined(__GNUC__)
#define ORVANE_UNNAMED_STRUCT __extension__ struct
#else
#define ORVANE_UNNAMED_STRUCT struct
#endif

namespace Orvane {

// The record: a message, and an HRESULT with a GUID or a name with a code.
class ErrorStorage : public std::runtime_error {
  public:
    // Capacity of `message` in characters, the terminator included.
    static constexpr std::size_t kMessageCapacity = 1024;

    // An empty record in the COM form, code 0.
    ErrorStorage() : std::runtime_error("Message not specified"), isNamed(false), message{}, hresult(0), guid{} {}

    // Copies the form, the message and the fields of the form. Throws nothing.
    ErrorStorage(const ErrorStorage& other) : std::runtime_error(other), isNamed(other.isNamed) { CopyRecord(other); }

    // The same.
    ErrorStorage& operator=(const ErrorStorage& other) {
        if (this != &other) {
            std::runtime_error::operator=(other);
            isNamed = other.isNamed;
            CopyRecord(other);
        }
        return *this;
    }

    ~ErrorStorage() override = default;

    // Selects the form: false for `hresult` and `guid`, true for `name` and `code`.
    bool isNamed;

    // The wide message, always terminated. May be truncated, and may be there when what() has none.
    wchar_t message[kMessageCapacity];

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wnested-anon-types"
#endif
    // The fields of the two forms.
    union {
        ORVANE_UNNAMED_STRUCT {
            std::int32_t hresult;  // of the COM form
            GUID guid;  // the interface or category that it belongs to
        };
        ORVANE_UNNAMED_STRUCT {
            const wchar_t* name;  // of the named form
            std::uint32_t code;  // its code
        };
    };
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

  private:
    void CopyRecord(const ErrorStorage& other) noexcept {
        std::size_t length = 0;
        while (length + 1 < kMessageCapacity && other.message[length] != L'\0') {
            ++length;
        }
        std::wmemcpy(message, other.message, length);
        message[length] = L'\0';
        if (isNamed) {
            name = other.name;
            code = other.code;
        } else {
            hresult = other.hresult;
            guid = other.guid;
        }
    }
};

// The base to catch for any framework error, whichever form its record has.
class ExceptionBase : public ErrorStorage {
  public:
    // With a copy of the record.
    explicit ExceptionBase(const ErrorStorage& error) : ErrorStorage(error) {}

  protected:
    // With an empty record.
    ExceptionBase() = default;
};

}  // namespace Orvane
