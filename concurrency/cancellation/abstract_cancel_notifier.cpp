#include "concurrency/cancellation/abstract_cancel_notifier.h"

namespace Orvane::Internal {

AbstractCancelNotifier::AbstractCancelNotifier() = default;
AbstractCancelNotifier::AbstractCancelNotifier(const AbstractCancelNotifier&) noexcept = default;
AbstractCancelNotifier& AbstractCancelNotifier::operator=(const AbstractCancelNotifier&) noexcept = default;
AbstractCancelNotifier::~AbstractCancelNotifier() = default;

}  // namespace Orvane::Internal
