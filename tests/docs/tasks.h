// What the blocks of docs/tasks.md take from their programs.
#pragma once

namespace {

using Orvane::CloneableException;

constexpr GUID kPrinting = {};
constexpr long kQuotaExceeded = 1;

}  // namespace
