// What the other module of exceptions_across_modules_test offers.
#pragma once

enum class ThrownKind { kPointer, kInternalError, kCancelRequested, kCancelled, kCloneableExceptionBase };

// Which handlers catch an exception.
struct Handlers {
    bool standardException;
    bool runtimeError;
    bool errorStorage;
    bool exceptionBase;
    bool exceptionCom;
    bool cloneableException;
    bool threadException;

    friend bool operator==(const Handlers&, const Handlers&) = default;
};

using ThrowFunction = void (*)(ThrownKind kind);
using CatchFunction = Handlers (*)(void (*action)());
