#include "concurrency/cancellation/cancellation_exceptions.h"

#include "concurrency/errors/exceptions.h"
#include "zarvo_orvane_utils/exception_factory.h"

namespace Orvane {

CancelRequestedException::CancelRequestedException() = default;
CancelRequestedException::CancelRequestedException(const CancelRequestedException&) = default;
CancelRequestedException& CancelRequestedException::operator=(const CancelRequestedException&) = default;
CancelRequestedException::~CancelRequestedException() = default;

const char* CancelRequestedException::what() const noexcept {
    return "CancelRequestedException";
}

ThreadException::ThreadException() = default;
ThreadException::ThreadException(const ThreadException&) = default;
ThreadException& ThreadException::operator=(const ThreadException&) = default;
ThreadException::~ThreadException() = default;

std::shared_ptr<CloneableException> ThreadException::Clone() const {
    return std::shared_ptr<CloneableException>(new ThreadException(*this));
}

void ThreadException::Rethrow() const {
    throw ThreadException(*this);
}

CancelledException::CancelledException() = default;
CancelledException::CancelledException(const CancelledException&) = default;
CancelledException& CancelledException::operator=(const CancelledException&) = default;
CancelledException::~CancelledException() = default;

std::shared_ptr<CloneableException> CancelledException::Clone() const {
    return std::shared_ptr<CloneableException>(new CancelledException(*this));
}

void CancelledException::Rethrow() const {
    throw CancelledException(*this);
}

// NOLINTNEXTLINE(bugprone-throw-keyword-missing): the base is initialised, not thrown
CloneableExceptionBase::CloneableExceptionBase(const ExceptionBase& error) : ExceptionBase(error) {}
CloneableExceptionBase::CloneableExceptionBase(const CloneableExceptionBase&) = default;
CloneableExceptionBase& CloneableExceptionBase::operator=(const CloneableExceptionBase&) = default;
CloneableExceptionBase::~CloneableExceptionBase() = default;

std::shared_ptr<CloneableException> CloneableExceptionBase::Clone() const {
    return std::shared_ptr<CloneableException>(new CloneableExceptionBase(*this));
}

void CloneableExceptionBase::Rethrow() const {
    const bool hasCode = isNamed ? code != 0 : hresult != 0;
    if (hasCode) {
        ExceptionFactory::Throw(*this);
    }
}

}  // namespace Orvane
