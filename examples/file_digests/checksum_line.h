// The lines that `sha256sum --check` reads.
#pragma once

#include <string>
#include <string_view>

#include "examples/file_digests/sha256.h"

namespace FileDigests {

// With the line feed at its end. A name that holds a backslash or a line break is escaped as sha256sum does it, with a
// backslash in front of the line.
std::string ChecksumLine(const Digest& digest, std::string_view name);

// The same escapes, and "?" for the other control characters: a name for messages, on one line and harmless to a
// terminal.
std::string ShownName(std::string_view name);

}  // namespace FileDigests
