// What the blocks of docs/scheduling.md take from their programs.
#pragma once

namespace {

struct Index {
    void Refresh() {}
};

Index index;
void Write() {}

}  // namespace
