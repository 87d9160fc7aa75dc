#include "KeyUse.h"

#include "Hives.h"
#include "Upcase.h"
#include "UserSid.h"

namespace {

constexpr CPathStart kMachineRoot = {Spot::MachineRoot, false, false};
constexpr CPathStart kClassesRoot = {Spot::MachineRoot, false, true};

// Empty for a name that is not of ASCII.
std::string UpcasedAscii(std::u16string_view name) {
    std::string text;
    for (const char16_t unit : name) {
        const char16_t upper = OvUpcase(unit);
        if (upper >= 0x80) return {};
        text += static_cast<char>(upper);
    }
    return text;
}

}  // namespace

CKeyUse::CKeyUse(HKEY key) {
    if (key == HKEY_LOCAL_MACHINE) {
        UsePredefined(CHives::Get().Machine(), kMachineRoot);
    } else if (key == HKEY_CLASSES_ROOT) {
        UsePredefined(CHives::Get().Machine(), kClassesRoot);
    } else if (key == HKEY_CURRENT_USER) {
        UsePredefined(CHives::Get().User(ProcessUserSid()));
    } else if (key == HKEY_USERS) {
        UsePredefined(CHives::Get().Users());
    } else {
        UseSlot(key);
    }
}

CKeyUse::CKeyUse(CHive& hive, REGSAM access) : m_access(access) {
    UsePredefined(hive);
}

void CKeyUse::UsePredefined(CHive& hive, const CPathStart& start) {
    m_lock = std::unique_lock(hive.Lock());
    m_hive = &hive;
    m_slot = nullptr;
    m_id = kRootKey;
    m_start = start;
    m_incarnation = hive.Incarnation();
}

void CKeyUse::UseSlot(HKEY key) {
    m_error = ERROR_INVALID_HANDLE;
    CKeySlot* slot = CKeySlots::Find(key);
    if (!slot) return;
    CHive& hive = *slot->hive.load(std::memory_order_relaxed);
    m_lock = std::unique_lock(hive.Lock());
    if (!CKeySlots::IsFor(*slot, key)) return;
    m_error = slot->isDead || slot->incarnation != hive.Incarnation() ? ERROR_KEY_DELETED : ERROR_SUCCESS;
    m_hive = &hive;
    m_slot = slot;
    m_id = slot->id;
    m_access = slot->access;
    m_start = slot->start;
    m_incarnation = slot->incarnation;
}

DWORD CKeyUse::Close(HKEY key) {
    const std::uintptr_t number = reinterpret_cast<std::uintptr_t>(key);
    const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(HKEY_CLASSES_ROOT);
    const std::uintptr_t last = reinterpret_cast<std::uintptr_t>(HKEY_USERS);
    if (number >= first && number <= last) return ERROR_SUCCESS;
    CKeySlot* slot = CKeySlots::Find(key);
    if (!slot) return ERROR_INVALID_HANDLE;
    CHive& hive = *slot->hive.load(std::memory_order_relaxed);
    const std::lock_guard lock(hive.Lock());
    if (!CKeySlots::IsFor(*slot, key)) return ERROR_INVALID_HANDLE;
    hive.Slots().Give(*slot);
    return ERROR_SUCCESS;
}

DWORD CKeyUse::EnterUserHive(LPCWSTR& path) {
    CKeyPath components(m_start, path);
    if (!components.Next()) return components.Error();
    const std::string sid = UpcasedAscii(components.Name());
    if (!IsSidText(sid)) return ERROR_FILE_NOT_FOUND;
    m_lock.unlock();
    CHive& hive = CHives::Get().User(sid);
    UsePredefined(hive);
    path = components.Rest();
    return HasHive();
}

DWORD CKeyUse::HasHive() const {
    return m_hive->Read([](CHiveView& view) -> DWORD { return view.IsEmpty() ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS; });
}

DWORD CKeyUse::FindStart(CHiveView& view, CKey*& key) const {
    if (!m_slot) return view.FindRoot(key);
    if (m_slot->view == view.Number()) {
        key = m_slot->key;
        return key->isGone ? ERROR_KEY_DELETED : ERROR_SUCCESS;
    }
    // The search may have found that the handle's hive was replaced.
    if (m_incarnation != m_hive->Incarnation()) return ERROR_KEY_DELETED;
    if (const DWORD error = view.FindKey(m_id, key)) return error;
    m_slot->key = key;
    m_slot->view = view.Number();
    return ERROR_SUCCESS;
}

DWORD CKeyUse::Find(CHiveView& view, CKeyPath& path, CKey*& key) const {
    if (path.Error()) return path.Error();
    if (const DWORD error = FindStart(view, key)) return error;
    while (path.Next()) {
        if (const DWORD error = view.FindSubKey(*key, CSoughtName(path.Name()), key)) return error;
    }
    return path.Error();
}

DWORD CKeyUse::Find(CHiveView& view, CKey*& key) const {
    if (!m_start.isClassesRoot) return FindStart(view, key);
    CKeyPath path(m_start, nullptr);
    return Find(view, path, key);
}

CPathStart CKeyUse::Start(REGSAM access) const noexcept {
    CPathStart start = m_start;
    // Both at once mean the 32-bit view.
    if (access & KEY_WOW64_32KEY) {
        start.is32BitView = true;
    } else if (access & KEY_WOW64_64KEY) {
        start.is32BitView = false;
    }
    return start;
}

DWORD CKeyUse::Write(CHiveChange& change) {
    m_lock.unlock();
    if (IsUsers()) return ERROR_ACCESS_DENIED;
    return m_hive->Write(change, m_incarnation);
}
