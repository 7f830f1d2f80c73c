// The kernel's side of the stand-in: objects behind handles, and the threads that wait for them.
//
// Threads: one lock protects everything here; every function of this header needs it unless it says otherwise.
// Lifetime: what is here is never destroyed. The last threads of a process may use it while destructors run.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/host/windows/errors.h"
#include "tests/host/windows/types.h"

namespace Host {

// The one lock. Not needed to take it.
std::mutex& KernelLock();

// A thread that waits: woken when one of its objects may have been signalled.
struct Waiter {
    std::condition_variable wake;
};

struct ThreadRecord;

class KernelObject {
  public:
    virtual ~KernelObject() = default;

    // Whether a wait by `thread` would end now.
    virtual bool IsSignalledFor(const ThreadRecord& thread) const = 0;

    // Ends such a wait: takes what the object has to give. Returns what is added to the wait's result.
    virtual DWORD Take(ThreadRecord& thread) = 0;

    void Add(Waiter& waiter) { m_waiters.push_back(&waiter); }
    void Remove(Waiter& waiter) { std::erase(m_waiters, &waiter); }

  protected:
    void WakeWaiters() {
        for (Waiter* const waiter : m_waiters) {
            waiter->wake.notify_all();
        }
    }

  private:
    std::vector<Waiter*> m_waiters;
};

using ObjectPointer = std::shared_ptr<KernelObject>;

// What a thread is to the kernel.
class ThreadObject : public KernelObject {
  public:
    explicit ThreadObject(DWORD id) : m_id(id) {}

    DWORD Id() const { return m_id; }
    bool IsSignalledFor(const ThreadRecord&) const override { return m_ended; }
    DWORD Take(ThreadRecord&) override { return 0; }

    void End() {
        m_ended = true;
        WakeWaiters();
    }

    std::wstring description;

  private:
    const DWORD m_id;
    bool m_ended = false;
};

// Something that a thread leaves behind when it ends.
class Abandonable {
  public:
    virtual void Abandon() = 0;

  protected:
    ~Abandonable() = default;
};

struct ThreadRecord {
    std::shared_ptr<ThreadObject> object;
    std::vector<std::weak_ptr<Abandonable>> owned;
};

// The calling thread's record, which ends with it.
ThreadRecord& ThisThread();

// The record of the thread with this id; null if it has none, or has ended.
ThreadRecord* FindThread(DWORD id);

// How many there are of them. Threads that never asked the kernel for anything are not among them.
std::size_t CountThreads();

// Ends the thread for the kernel: its mutexes are abandoned, waits for it end.
void EndThread(ThreadRecord& thread);

HANDLE OpenHandle(ObjectPointer object);

// Null, with the last error set, if the handle is none, or not one of a `Kind`.
ObjectPointer ObjectOf(HANDLE handle);
template <typename Kind>
std::shared_ptr<Kind> ObjectOf(HANDLE handle);

bool Close(HANDLE handle);

std::size_t CountHandles();

// The object of that name, null if there is none. Names last as long as their objects.
ObjectPointer FindNamed(const std::wstring& name);
void SetName(const std::wstring& name, const ObjectPointer& object);

// Opens the object of that name if there is one, which must be of the same kind, and makes one otherwise. Sets the last
// error: why it returns no handle, or ERROR_ALREADY_EXISTS.
template <typename Kind, typename Make>
HANDLE OpenOrMake(LPCWSTR name, Make make);

// Whether an object may be called so; sets the last error if not.
bool IsGoodName(const std::wstring& name);

template <typename Kind>
std::shared_ptr<Kind> ObjectOf(HANDLE handle) {
    auto object = std::dynamic_pointer_cast<Kind>(ObjectOf(handle));
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return object;
}

template <typename Kind, typename Make>
HANDLE OpenOrMake(LPCWSTR name, Make make) {
    const std::wstring text = name != nullptr ? name : L"";
    if (!IsGoodName(text)) {
        return nullptr;
    }
    SetLastError(ERROR_SUCCESS);
    if (const auto known = FindNamed(text)) {
        if (!std::dynamic_pointer_cast<Kind>(known)) {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr;
        }
        const HANDLE handle = OpenHandle(known);
        SetLastError(ERROR_ALREADY_EXISTS);
        return handle;
    }
    const std::shared_ptr<Kind> made = make();
    SetName(text, made);
    return OpenHandle(made);
}

}  // namespace Host
