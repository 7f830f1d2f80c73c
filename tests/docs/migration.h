// What the blocks of docs/migration.md take from their programs.
#pragma once

namespace {

constexpr int rows = 0;
void Smooth(int) {}

}  // namespace
