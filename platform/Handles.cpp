#include "Handles.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "win/sync.h"

namespace {

// A handle is generation, index + 1 and two zero bits. The generation counts the uses of a place.
constexpr int kIndexBits = 22;
constexpr std::uintptr_t kMaxHandles = (std::uintptr_t{1} << kIndexBits) - 1;

struct Place {
    std::shared_ptr<CKernelObject> object;
    std::uint32_t generation = 0;
};

class CHandleTable {
  public:
    HANDLE Add(std::shared_ptr<CKernelObject> object) {
        std::lock_guard lock(m_lock);
        std::size_t index = m_places.size();
        if (!m_free.empty()) {
            index = m_free.back();
            m_free.pop_back();
        } else {
            if (index >= kMaxHandles) return nullptr;
            if (m_free.capacity() <= index) m_free.reserve(2 * index + 16);  // so that closing needs no memory
            m_places.emplace_back();
        }
        m_places[index].object = std::move(object);
        return ToHandle(index, m_places[index].generation);
    }

    // What the handle stood for, so that it goes without the lock held.
    std::shared_ptr<CKernelObject> Remove(HANDLE handle) noexcept {
        std::lock_guard lock(m_lock);
        Place* place = At(handle);
        if (!place) return nullptr;
        ++place->generation;
        m_free.push_back(static_cast<std::size_t>(place - m_places.data()));
        return std::move(place->object);
    }

    std::shared_ptr<CKernelObject> Find(HANDLE handle) noexcept {
        std::lock_guard lock(m_lock);
        const Place* place = At(handle);
        return place ? place->object : nullptr;
    }

  private:
    static HANDLE ToHandle(std::size_t index, std::uint32_t generation) {
        const std::uintptr_t number = std::uintptr_t{generation} << kIndexBits | (index + 1);
        return reinterpret_cast<HANDLE>(number << 2);
    }

    Place* At(HANDLE handle) {
        const auto number = reinterpret_cast<std::uintptr_t>(handle);
        const std::size_t index = ((number >> 2) & kMaxHandles) - 1;
        if (index >= m_places.size() || !m_places[index].object) return nullptr;
        return ToHandle(index, m_places[index].generation) == handle ? &m_places[index] : nullptr;
    }

    std::mutex m_lock;
    std::vector<Place> m_places;
    std::vector<std::size_t> m_free;
};

class CMutex : public CKernelObject {};

// The names of this process. An entry whose object is gone is a free name.
class CMutexNames {
  public:
    // The object of that name, made if there is none; `existed` tells.
    std::shared_ptr<CMutex> Open(const std::u16string& name, bool& existed) {
        std::lock_guard lock(m_lock);
        std::erase_if(m_names, [](const auto& entry) { return entry.second.expired(); });
        std::weak_ptr<CMutex>& entry = m_names[name];
        std::shared_ptr<CMutex> mutex = entry.lock();
        existed = mutex != nullptr;
        if (!mutex) entry = mutex = std::make_shared<CMutex>();
        return mutex;
    }

  private:
    std::mutex m_lock;
    std::map<std::u16string, std::weak_ptr<CMutex>> m_names;
};

// Never destroyed: modules close their handles when the process ends, after the layer's own statics are gone.
CHandleTable& TheHandles() {
    static CHandleTable& table = *new CHandleTable;
    return table;
}

CMutexNames& TheMutexNames() {
    static CMutexNames& names = *new CMutexNames;
    return names;
}

}  // namespace

HANDLE OpenHandle(std::shared_ptr<CKernelObject> object) noexcept {
    try {
        return TheHandles().Add(std::move(object));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

std::shared_ptr<CKernelObject> ObjectOf(HANDLE handle) noexcept {
    return TheHandles().Find(handle);
}

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCWSTR name) {
    // Nothing here waits for a mutex, so that none can be owned.
    if (security || initialOwner) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    HANDLE handle = nullptr;
    bool existed = false;
    try {
        handle = OpenHandle(name && *name ? TheMutexNames().Open(name, existed) : std::make_shared<CMutex>());
    } catch (const std::bad_alloc&) {
    }
    SetLastError(!handle ? ERROR_NOT_ENOUGH_MEMORY : existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

BOOL WINAPI CloseHandle(HANDLE handle) {
    if (TheHandles().Remove(handle)) return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}
