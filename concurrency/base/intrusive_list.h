// A list of objects that carry their own links, one pair for each tag: linking needs no memory and cannot fail.
//
// Threads: what guards the list guards the links of its objects.
// Lifetime: an object must be unlinked before it is destroyed; the list does not own it.
#pragma once

namespace Orvane::Internal {

template <typename T, typename ListTag>
class IntrusiveList;

template <typename Tag>
class ListHook {
  public:
    ListHook() = default;
    ListHook(const ListHook&) = delete;
    ListHook& operator=(const ListHook&) = delete;

    bool IsLinked() const noexcept { return m_next != nullptr; }

    // Nothing if it is in no list.
    void Unlink() noexcept {
        if (IsLinked()) {
            m_previous->m_next = m_next;
            m_next->m_previous = m_previous;
            m_previous = m_next = nullptr;
        }
    }

  private:
    template <typename T, typename ListTag>
    friend class IntrusiveList;

    ListHook* m_previous = nullptr;
    ListHook* m_next = nullptr;
};

template <typename T, typename Tag>
class IntrusiveList {
  public:
    IntrusiveList() noexcept { Clear(); }
    IntrusiveList(const IntrusiveList&) = delete;
    IntrusiveList& operator=(const IntrusiveList&) = delete;

    bool IsEmpty() const noexcept { return m_end.m_next == &m_end; }

    void PushBack(T& object) noexcept {
        ListHook<Tag>& hook = object;
        hook.m_previous = m_end.m_previous;
        hook.m_next = &m_end;
        m_end.m_previous->m_next = &hook;
        m_end.m_previous = &hook;
    }

    void PushFront(T& object) noexcept {
        ListHook<Tag>& hook = object;
        hook.m_previous = &m_end;
        hook.m_next = m_end.m_next;
        m_end.m_next->m_previous = &hook;
        m_end.m_next = &hook;
    }

    // Null if the list is empty.
    T* Front() const noexcept { return IsEmpty() ? nullptr : static_cast<T*>(m_end.m_next); }
    T* Back() const noexcept { return IsEmpty() ? nullptr : static_cast<T*>(m_end.m_previous); }

    // The one behind `object`; null at the end.
    T* Next(const T& object) const noexcept {
        const ListHook<Tag>& hook = object;
        return hook.m_next == &m_end ? nullptr : static_cast<T*>(hook.m_next);
    }

    T* PopFront() noexcept {
        T* const front = Front();
        if (front != nullptr) {
            static_cast<ListHook<Tag>*>(front)->Unlink();
        }
        return front;
    }

    T* PopBack() noexcept {
        T* const back = Back();
        if (back != nullptr) {
            static_cast<ListHook<Tag>*>(back)->Unlink();
        }
        return back;
    }

    // Moves all objects of `other` to the end of this list.
    void TakeAll(IntrusiveList& other) noexcept {
        if (other.IsEmpty()) {
            return;
        }
        m_end.m_previous->m_next = other.m_end.m_next;
        other.m_end.m_next->m_previous = m_end.m_previous;
        other.m_end.m_previous->m_next = &m_end;
        m_end.m_previous = other.m_end.m_previous;
        other.Clear();
    }

  private:
    void Clear() noexcept { m_end.m_previous = m_end.m_next = &m_end; }

    ListHook<Tag> m_end;
};

}  // namespace Orvane::Internal
