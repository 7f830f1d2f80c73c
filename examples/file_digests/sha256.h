// SHA-256 by the system's CNG.
//
// Threads: one algorithm serves all threads; a hash belongs to one.
// Errors: FileError.
#pragma once

#include <windows.h>

#include <bcrypt.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace FileDigests {

using Digest = std::array<std::uint8_t, 32>;

class Sha256Algorithm {
  public:
    Sha256Algorithm();
    ~Sha256Algorithm();
    Sha256Algorithm(const Sha256Algorithm&) = delete;
    Sha256Algorithm& operator=(const Sha256Algorithm&) = delete;

    BCRYPT_ALG_HANDLE Get() const { return m_algorithm; }

  private:
    BCRYPT_ALG_HANDLE m_algorithm = nullptr;
};

class Sha256 {
  public:
    explicit Sha256(const Sha256Algorithm& algorithm);
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void Add(std::span<const std::byte> data);

    // Once, as the last call.
    Digest Finish();

  private:
    BCRYPT_HASH_HANDLE m_hash = nullptr;
};

}  // namespace FileDigests
