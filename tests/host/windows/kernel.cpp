#include "tests/host/windows/kernel.h"

#include <cstdint>
#include <map>

#include <unistd.h>

#include "tests/host/windows/objects.h"
#include "tests/host/windows/threads.h"

namespace Host {

namespace {

// Handles are never given out twice: whoever uses one after its end always meets an error.
struct Table {
    std::mutex lock;
    std::map<HANDLE, ObjectPointer> handles;
    std::map<std::wstring, std::weak_ptr<KernelObject>> names;
    std::map<DWORD, ThreadRecord*> threads;
    std::uintptr_t lastHandle = 0x40;
};

Table& TheTable() {
    static Table& table = *new Table;
    return table;
}

thread_local constinit ThreadRecord* t_record = nullptr;

struct RecordEnder {
    ~RecordEnder() {
        const std::lock_guard lock(KernelLock());
        EndThread(*t_record);
        delete t_record;
        t_record = nullptr;
    }
};

}  // namespace

std::mutex& KernelLock() {
    return TheTable().lock;
}

ThreadRecord& ThisThread() {
    if (t_record == nullptr) {
        t_record = new ThreadRecord{std::make_shared<ThreadObject>(GetCurrentThreadId()), {}};
        TheTable().threads[GetCurrentThreadId()] = t_record;
        static thread_local const RecordEnder ender;
    }
    return *t_record;
}

ThreadRecord* FindThread(DWORD id) {
    const Table& table = TheTable();
    const auto entry = table.threads.find(id);
    return entry != table.threads.end() ? entry->second : nullptr;
}

std::size_t CountThreads() {
    return TheTable().threads.size();
}

void EndThread(ThreadRecord& thread) {
    for (const auto& owned : thread.owned) {
        if (const auto object = owned.lock()) {
            object->Abandon();
        }
    }
    thread.owned.clear();
    thread.object->End();
    TheTable().threads.erase(thread.object->Id());
}

HANDLE OpenHandle(ObjectPointer object) {
    Table& table = TheTable();
    table.lastHandle += 4;
    const auto handle = reinterpret_cast<HANDLE>(table.lastHandle);
    table.handles.emplace(handle, std::move(object));
    return handle;
}

ObjectPointer ObjectOf(HANDLE handle) {
    if (handle == GetCurrentThread()) {
        return ThisThread().object;
    }
    const Table& table = TheTable();
    const auto entry = table.handles.find(handle);
    if (entry == table.handles.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return entry->second;
}

bool Close(HANDLE handle) {
    if (TheTable().handles.erase(handle) == 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    return true;
}

std::size_t CountHandles() {
    return TheTable().handles.size();
}

ObjectPointer FindNamed(const std::wstring& name) {
    const Table& table = TheTable();
    const auto entry = table.names.find(name);
    return entry != table.names.end() ? entry->second.lock() : nullptr;
}

void SetName(const std::wstring& name, const ObjectPointer& object) {
    if (!name.empty()) {
        TheTable().names[name] = object;
    }
}

bool IsGoodName(const std::wstring& name) {
    std::size_t begin = 0;
    for (const std::wstring space : {L"Global\\", L"Local\\"}) {
        if (name.starts_with(space)) {
            begin = space.size();
        }
    }
    if (name.find(L'\\', begin) != std::wstring::npos) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    return true;
}

}  // namespace Host

BOOL CloseHandle(HANDLE handle) {
    // The object may go with its last handle, but not under the lock.
    Host::ObjectPointer object;
    const std::lock_guard lock(Host::KernelLock());
    if (handle == GetCurrentThread() || handle == GetCurrentProcess()) {
        return TRUE;
    }
    object = Host::ObjectOf(handle);
    return Host::Close(handle) ? TRUE : FALSE;
}

BOOL DuplicateHandle(HANDLE, HANDLE handle, HANDLE, HANDLE* copy, DWORD, BOOL, DWORD) {
    const std::lock_guard lock(Host::KernelLock());
    auto object = Host::ObjectOf(handle);
    if (!object) {
        return FALSE;
    }
    *copy = Host::OpenHandle(std::move(object));
    return TRUE;
}
