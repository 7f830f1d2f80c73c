// What the blocks of docs/cancellation-points.md take from their programs.
#pragma once

namespace {

using namespace Orvane;
using namespace Orvane::Internal;

void DoPart() {}

}  // namespace
