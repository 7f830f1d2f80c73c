#include "examples/shared_counter/counter.h"

namespace SharedCounter {

Counter::Counter(const std::wstring& name)
    : m_mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Memory),
                                   (L"Local\\" + name).c_str()),
                "shared memory"),
      m_memory(static_cast<Memory*>(MapViewOfFile(m_mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Memory)))) {
    if (m_memory == nullptr) {
        ThrowLastError("view of the shared memory");
    }
}

Counter::~Counter() {
    UnmapViewOfFile(m_memory);
}

void Counter::BeginAddition() {
    m_memory->begun = m_memory->value + 1;
}

void Counter::CompleteAddition() {
    m_memory->value = m_memory->begun;
}

bool Counter::IsWhole() const {
    return m_memory->begun == m_memory->value;
}

void Counter::Repair() {
    m_memory->begun = m_memory->value;
}

long long Counter::Value() const {
    return m_memory->value;
}

}  // namespace SharedCounter
