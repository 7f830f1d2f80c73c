#include "tests/host/windows/registry.h"

#include <cwctype>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/windows/errors.h"

namespace {

// Names are not case-sensitive.
struct Before {
    bool operator()(const std::wstring& left, const std::wstring& right) const { return Lower(left) < Lower(right); }

    static std::wstring Lower(std::wstring text) {
        for (wchar_t& character : text) {
            character = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
        }
        return text;
    }
};

struct Value {
    DWORD type;
    std::vector<BYTE> data;
};

struct Key {
    std::map<std::wstring, std::shared_ptr<Key>, Before> keys;
    std::map<std::wstring, Value, Before> values;
};
using KeyPointer = std::shared_ptr<Key>;

struct Registry {
    std::mutex lock;  // protects the rest, the keys included
    std::map<HKEY, KeyPointer> predefined;  // made at first use
    std::map<HKEY, KeyPointer> replacements;  // of predefined ones
    std::map<HKEY, KeyPointer> open;
    std::uintptr_t lastHandle = 0x100;
};

Registry& TheRegistry() {
    static Registry& registry = *new Registry;
    return registry;
}

bool IsPredefined(HKEY key) {
    return key == HKEY_CLASSES_ROOT || key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE;
}

// Null if the handle is none.
KeyPointer KeyOf(Registry& registry, HKEY handle) {
    if (!IsPredefined(handle)) {
        const auto entry = registry.open.find(handle);
        return entry != registry.open.end() ? entry->second : nullptr;
    }
    if (const auto replaced = registry.replacements.find(handle); replaced != registry.replacements.end()) {
        return replaced->second;
    }
    KeyPointer& key = registry.predefined[handle];
    if (!key) {
        key = std::make_shared<Key>();
    }
    return key;
}

std::vector<std::wstring> Parts(LPCWSTR path) {
    std::vector<std::wstring> parts;
    std::wstring part;
    for (; path != nullptr && *path != L'\0'; ++path) {
        if (*path != L'\\') {
            part += *path;
        } else {
            parts.push_back(std::exchange(part, {}));
        }
    }
    if (!part.empty()) {
        parts.push_back(part);
    }
    return parts;
}

// Null if there is none.
KeyPointer Below(KeyPointer key, const std::vector<std::wstring>& parts) {
    for (const std::wstring& part : parts) {
        const auto entry = key->keys.find(part);
        if (entry == key->keys.end()) {
            return nullptr;
        }
        key = entry->second;
    }
    return key;
}

HKEY Open(Registry& registry, KeyPointer key) {
    registry.lastHandle += 4;
    const auto handle = reinterpret_cast<HKEY>(registry.lastHandle);
    registry.open.emplace(handle, std::move(key));
    return handle;
}

std::wstring NameOf(LPCWSTR name) {
    return name != nullptr ? name : L"";
}

LSTATUS Delete(HKEY parent, LPCWSTR path, bool onlyLeaf) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.lock);
    const KeyPointer key = KeyOf(registry, parent);
    if (!key) {
        return ERROR_INVALID_HANDLE;
    }
    std::vector<std::wstring> parts = Parts(path);
    if (parts.empty()) {
        key->keys.clear();
        key->values.clear();
        return ERROR_SUCCESS;
    }
    const std::wstring last = parts.back();
    parts.pop_back();
    const KeyPointer holder = Below(key, parts);
    const auto entry = holder ? holder->keys.find(last) : decltype(key->keys)::iterator{};
    if (!holder || entry == holder->keys.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (onlyLeaf && !entry->second->keys.empty()) {
        return ERROR_ACCESS_DENIED;
    }
    holder->keys.erase(entry);
    return ERROR_SUCCESS;
}

}  // namespace

LSTATUS RegOpenKeyExW(HKEY parent, LPCWSTR path, DWORD, DWORD, PHKEY key) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.lock);
    const KeyPointer from = KeyOf(registry, parent);
    if (!from) {
        return ERROR_INVALID_HANDLE;
    }
    KeyPointer found = Below(from, Parts(path));
    if (!found) {
        return ERROR_FILE_NOT_FOUND;
    }
    *key = Open(registry, std::move(found));
    return ERROR_SUCCESS;
}

LSTATUS RegCreateKeyExW(HKEY parent, LPCWSTR path, DWORD, LPWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, PHKEY key,
                        LPDWORD) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.lock);
    KeyPointer made = KeyOf(registry, parent);
    if (!made) {
        return ERROR_INVALID_HANDLE;
    }
    for (const std::wstring& part : Parts(path)) {
        KeyPointer& next = made->keys[part];
        if (!next) {
            next = std::make_shared<Key>();
        }
        made = KeyPointer(next);
    }
    *key = Open(registry, std::move(made));
    return ERROR_SUCCESS;
}

LSTATUS RegSetValueExW(HKEY handle, LPCWSTR name, DWORD, DWORD type, const BYTE* data, DWORD size) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.lock);
    const KeyPointer key = KeyOf(registry, handle);
    if (!key) {
        return ERROR_INVALID_HANDLE;
    }
    key->values[NameOf(name)] = {type, {data, data + size}};
    return ERROR_SUCCESS;
}

LSTATUS RegQueryValueExW(HKEY handle, LPCWSTR name, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.lock);
    const KeyPointer key = KeyOf(registry, handle);
    if (!key) {
        return ERROR_INVALID_HANDLE;
    }
    const auto entry = key->values.find(NameOf(name));
    if (entry == key->values.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    const Value& value = entry->second;
    if (type != nullptr) {
        *type = value.type;
    }
    const DWORD room = data != nullptr && size != nullptr ? *size : 0;
    if (size != nullptr) {
        *size = value.data.size();
    }
    if (data == nullptr) {
        return ERROR_SUCCESS;
    }
    if (room < value.data.size()) {
        return ERROR_MORE_DATA;
    }
    std::copy(value.data.begin(), value.data.end(), data);
    return ERROR_SUCCESS;
}

LSTATUS RegDeleteValueW(HKEY handle, LPCWSTR name) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.lock);
    const KeyPointer key = KeyOf(registry, handle);
    if (!key) {
        return ERROR_INVALID_HANDLE;
    }
    return key->values.erase(NameOf(name)) != 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

LSTATUS RegDeleteTreeW(HKEY parent, LPCWSTR path) {
    return Delete(parent, path, false);
}

LSTATUS RegDeleteKeyW(HKEY parent, LPCWSTR path) {
    return Delete(parent, path, true);
}

LSTATUS RegOverridePredefKey(HKEY predefined, HKEY replacement) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.lock);
    if (replacement == nullptr) {
        registry.replacements.erase(predefined);
        return ERROR_SUCCESS;
    }
    KeyPointer key = KeyOf(registry, replacement);
    if (!key) {
        return ERROR_INVALID_HANDLE;
    }
    registry.replacements[predefined] = std::move(key);
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY handle) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.lock);
    if (IsPredefined(handle)) {
        return ERROR_SUCCESS;
    }
    return registry.open.erase(handle) != 0 ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}
