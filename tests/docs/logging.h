// What the blocks of docs/logging.md take from their programs.
#pragma once

namespace {

const wchar_t* const path = L"";
void RunWhatIsTested() {}

}  // namespace
