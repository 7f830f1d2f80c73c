// The other module of exceptions_across_modules_test: throws here what the program catches, and catches here what the
// program throws.
#include "tests/errors/exceptions_across_modules_test_dll.h"

#include <exception>
#include <stdexcept>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/errors/exceptions.h"
#include "tests/errors/class_tree.h"
#include "tests/errors/error_records.h"

using namespace Orvane;
using namespace Zarvo::Test;

extern "C" __declspec(dllexport) void ThrowInTheOtherModule(ThrownKind kind) {
    switch (kind) {
        case ThrownKind::kPointer: throw Pointer(ComRecord(42, kSomeGuid));
        case ThrownKind::kInternalError: throw InternalError(NamedRecord(kSomeName, 42));
        case ThrownKind::kCancelRequested: throw CancelRequestedException();
        case ThrownKind::kCancelled: throw CancelledException();
        case ThrownKind::kCloneableExceptionBase: throw CloneableExceptionBase(Pointer(ComRecord(42, kSomeGuid)));
    }
}

extern "C" __declspec(dllexport) Handlers CatchInTheOtherModule(void (*action)()) {
    return {
        .standardException = IsCaughtAs<std::exception>(action),
        .runtimeError = IsCaughtAs<std::runtime_error>(action),
        .errorStorage = IsCaughtAs<ErrorStorage>(action),
        .exceptionBase = IsCaughtAs<ExceptionBase>(action),
        .exceptionCom = IsCaughtAs<ExceptionCOM>(action),
        .cloneableException = IsCaughtAs<CloneableException>(action),
        .threadException = IsCaughtAs<ThreadException>(action),
    };
}
