#include "concurrency/jobs/job_block.h"

#include <new>
#include <string_view>

namespace Orvane::Internal {

namespace {

bool IsOverAligned(std::size_t alignment) noexcept {
    return alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__;
}

// Where the name begins in the block.
std::size_t NameOffset(const JobBodyType& type) noexcept {
    return (type.size + alignof(wchar_t) - 1) / alignof(wchar_t) * alignof(wchar_t);
}

}  // namespace

JobBlock::JobBlock(const JobBodyType& type, const wchar_t* name) : m_type(type) {
    const std::wstring_view text = name != nullptr ? name : L"";
    const std::size_t size = NameOffset(type) + (text.size() + 1) * sizeof(wchar_t);
    m_start =
        IsOverAligned(type.alignment) ? ::operator new(size, std::align_val_t{type.alignment}) : ::operator new(size);
    wchar_t* const copy = reinterpret_cast<wchar_t*>(static_cast<std::byte*>(m_start) + NameOffset(type));
    copy[text.copy(copy, text.size())] = L'\0';
}

void JobBlock::Free(std::size_t alignment) const noexcept {
    if (IsOverAligned(alignment)) {
        ::operator delete(m_start, std::align_val_t{alignment});
    } else {
        ::operator delete(m_start);
    }
}

const wchar_t* JobBlock::Name() const noexcept {
    return reinterpret_cast<const wchar_t*>(static_cast<const std::byte*>(m_start) + NameOffset(m_type));
}

}  // namespace Orvane::Internal
