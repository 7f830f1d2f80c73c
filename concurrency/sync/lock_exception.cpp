#include "concurrency/sync/lock_exception.h"

namespace Orvane {

LockException::LockException(const char* message) : m_message(message) {}

LockException::LockException(const LockException&) noexcept = default;
LockException& LockException::operator=(const LockException&) noexcept = default;
LockException::~LockException() = default;

const char* LockException::what() const noexcept {
    return m_message.what();
}

std::shared_ptr<CloneableException> LockException::Clone() const {
    return std::shared_ptr<CloneableException>(new LockException(*this));
}

void LockException::Rethrow() const {
    throw LockException(*this);
}

}  // namespace Orvane
