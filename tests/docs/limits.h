// What the blocks of docs/limits.md take from their programs.
#pragma once

namespace {

void Start() {}

}  // namespace
