// Text put together piece by piece, which loses its end rather than everything when memory lacks.
//
// The first kInlineCapacity characters live in the object itself, the rest on the heap. What no longer fits is dropped,
// and Close() says so in the text.
//
// Errors: none; never throws.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <utility>

namespace Orvane::Reports {

template <typename Char, std::size_t kInlineCapacity>
class GrowingText {
  public:
    using View = std::basic_string_view<Char>;

    GrowingText() noexcept = default;
    GrowingText(const GrowingText&) = delete;
    GrowingText& operator=(const GrowingText&) = delete;

    void Append(View text) noexcept {
        const std::span<Char> room = Extend(text.size());
        std::copy_n(text.begin(), room.size(), room.begin());
    }
    void Append(std::size_t count, Char character) noexcept { std::ranges::fill(Extend(count), character); }
    void Append(Char character) noexcept { Append(1, character); }

    // Makes the text longer by `count` characters, to be written by the caller. Shorter than that when memory lacks.
    std::span<Char> Extend(std::size_t count) noexcept;

    // Takes the last `count` characters away again.
    void DropLast(std::size_t count) noexcept { m_size -= count; }

    // Ends the text with `ending`, in any case. If something was dropped, a remark comes before it.
    void Close(View ending) noexcept;

    [[nodiscard]] View Text() const noexcept { return {m_data, m_size}; }

  private:
    static constexpr std::string_view kRemark = " [cut: out of memory]";

    void Grow(std::size_t wanted) noexcept;
    void StepBackTo(std::size_t size) noexcept;

    std::array<Char, kInlineCapacity> m_inline;
    std::unique_ptr<Char[]> m_heap;
    Char* m_data = m_inline.data();
    std::size_t m_capacity = kInlineCapacity;
    std::size_t m_size = 0;
    bool m_cut = false;  // something was dropped; nothing is added any more
};

template <typename Char, std::size_t kInlineCapacity>
std::span<Char> GrowingText<Char, kInlineCapacity>::Extend(std::size_t count) noexcept {
    if (m_cut) {
        return {};
    }
    if (count > m_capacity - m_size) {
        Grow(m_size + count);
    }
    const std::size_t given = std::min(count, m_capacity - m_size);
    m_cut = given < count;
    m_size += given;
    return {m_data + m_size - given, given};
}

template <typename Char, std::size_t kInlineCapacity>
void GrowingText<Char, kInlineCapacity>::Close(View ending) noexcept {
    if (!m_cut) {
        Append(ending);
    }
    if (!m_cut) {
        return;
    }
    StepBackTo(std::min(m_size, m_capacity - kRemark.size() - ending.size()));
    std::ranges::copy(kRemark, m_data + m_size);
    std::ranges::copy(ending, m_data + m_size + kRemark.size());
    m_size += kRemark.size() + ending.size();
}

template <typename Char, std::size_t kInlineCapacity>
void GrowingText<Char, kInlineCapacity>::Grow(std::size_t wanted) noexcept {
    const std::size_t capacity = std::max(wanted, 2 * m_capacity);
    std::unique_ptr<Char[]> larger(new (std::nothrow) Char[capacity]);
    if (larger != nullptr) {
        std::copy_n(m_data, m_size, larger.get());
        m_heap = std::move(larger);
        m_data = m_heap.get();
        m_capacity = capacity;
    }
}

// Makes the text shorter, and in UTF-8 never in the middle of a character.
template <typename Char, std::size_t kInlineCapacity>
void GrowingText<Char, kInlineCapacity>::StepBackTo(std::size_t size) noexcept {
    const bool shorter = size < m_size;
    m_size = size;
    if constexpr (sizeof(Char) == 1) {
        while (shorter && m_size > 0 && (static_cast<unsigned char>(m_data[m_size]) & 0xC0U) == 0x80U) {
            --m_size;
        }
    }
}

// Every format of the framework fits into the object itself; a line has up to three bytes for each character.
using WideText = GrowingText<wchar_t, 1024>;
using Utf8Text = GrowingText<char, std::size_t{3} * 1024>;

}  // namespace Orvane::Reports
