// What the blocks of docs/faq.md take from their programs.
#pragma once

namespace {

int Save() {
    return 0;
}
void Show(int) {}
Orvane::Job<int> save;

}  // namespace
