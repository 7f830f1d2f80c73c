// A folder of its own for a test, removed with everything in it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "examples/file_digests/handle.h"

namespace Zarvo::Test {

class TemporaryTree {
  public:
    TemporaryTree();
    ~TemporaryTree();
    TemporaryTree(const TemporaryTree&) = delete;
    TemporaryTree& operator=(const TemporaryTree&) = delete;

    // As a command line takes it.
    std::string Path() const;

    // With the prefix that allows any length, and `below`.
    std::wstring Path(std::wstring_view below) const;

    // `path` below the tree, with backslashes; missing folders are made.
    void Write(std::wstring_view path, std::string_view content = "") const;

    void MakeFolder(std::wstring_view path) const;

    // A file of so many zero bytes that takes no room.
    void WriteZeros(std::wstring_view path, std::uint64_t size) const;

    // Keeps everybody else from opening the file, until the handle goes.
    FileDigests::Handle Lock(std::wstring_view path) const;

  private:
    FileDigests::Handle Create(std::wstring_view path) const;

    std::wstring m_path;
};

}  // namespace Zarvo::Test
