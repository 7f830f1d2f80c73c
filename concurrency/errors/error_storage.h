// The error record that crosses threads and modules, and the base of every exception that carries one.
//
// Header only: the utilities library, which the concurrency library links, reads the record as well, and neither may
// need the other's code for it.
//
// Threads: a record is a plain value; share it between threads only while no thread writes it.
// Lifetime: in the named form `name` is borrowed, not copied: it must outlive every copy of the record.
#pragma once

#include <guiddef.h>

#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <stdexcept>

// A structure without a name, whose fields are those of the class around it: every compiler has them, the standard does not.
#if defined(__GNUC__)
#define ORVANE_UNNAMED_STRUCT __extension__ struct
#else
#define ORVANE_UNNAMED_STRUCT struct
#endif

namespace Orvane {

class ErrorStorage : public std::runtime_error {
  public:
    // Capacity of `message` in characters, the terminator included.
    static constexpr std::size_t kMessageCapacity = 1024;

    // An empty record in the COM form, code 0.
    ErrorStorage() : std::runtime_error("Message not specified"), isNamed(false), message{}, hresult(0), guid{} {}

    ErrorStorage(const ErrorStorage& other) : std::runtime_error(other), isNamed(other.isNamed) { CopyRecord(other); }

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
    union {
        ORVANE_UNNAMED_STRUCT {
            std::int32_t hresult;
            GUID guid;
        };
        ORVANE_UNNAMED_STRUCT {
            const wchar_t* name;
            std::uint32_t code;
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
    explicit ExceptionBase(const ErrorStorage& error) : ErrorStorage(error) {}

  protected:
    ExceptionBase() = default;
};

}  // namespace Orvane
