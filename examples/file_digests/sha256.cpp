#include "examples/file_digests/sha256.h"

#include "examples/file_digests/file_error.h"

namespace FileDigests {

namespace {

void Require(NTSTATUS status) {
    if (status < 0) {
        throw FileError("compute SHA-256", static_cast<DWORD>(HRESULT_FROM_NT(status)));
    }
}

}  // namespace

Sha256Algorithm::Sha256Algorithm() {
    Require(BCryptOpenAlgorithmProvider(&m_algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0));
}

Sha256Algorithm::~Sha256Algorithm() { BCryptCloseAlgorithmProvider(m_algorithm, 0); }

Sha256::Sha256(const Sha256Algorithm& algorithm) {
    Require(BCryptCreateHash(algorithm.Get(), &m_hash, nullptr, 0, nullptr, 0, 0));
}

Sha256::~Sha256() { BCryptDestroyHash(m_hash); }

void Sha256::Add(std::span<const std::byte> data) {
    // CNG takes the data without const and leaves it alone.
    auto* const bytes = reinterpret_cast<UCHAR*>(const_cast<std::byte*>(data.data()));
    Require(BCryptHashData(m_hash, bytes, static_cast<ULONG>(data.size()), 0));
}

Digest Sha256::Finish() {
    Digest digest;
    Require(BCryptFinishHash(m_hash, digest.data(), static_cast<ULONG>(digest.size()), 0));
    return digest;
}

}  // namespace FileDigests
