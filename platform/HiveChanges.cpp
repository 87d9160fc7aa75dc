#include "HiveChanges.h"

#include "BootId.h"
#include "Upcase.h"

namespace {

// A name as it is sought in the tables: upcased, high byte first.
class CStoredName {
  public:
    explicit CStoredName(std::u16string_view name) : m_size(name.size() * sizeof(char16_t)) {
        BYTE* to = m_short;
        if (m_size > sizeof m_short) {
            m_long.reset(new BYTE[m_size]);
            to = m_long.get();
        }
        m_bytes = to;
        for (const char16_t unit : name) {
            const char16_t upper = OvUpcase(unit);
            *to++ = static_cast<BYTE>(upper >> 8);
            *to++ = static_cast<BYTE>(upper & 0xFF);
        }
    }
    CStoredName(const CStoredName&) = delete;
    CStoredName& operator=(const CStoredName&) = delete;

    std::span<const BYTE> Bytes() const noexcept { return {m_bytes, m_size}; }

  private:
    const std::size_t m_size;
    const BYTE* m_bytes;
    std::unique_ptr<BYTE[]> m_long;
    BYTE m_short[kMaxKeyName * sizeof(char16_t)];
};

std::span<const BYTE> AsBytes(std::u16string_view text) noexcept {
    return {reinterpret_cast<const BYTE*>(text.data()), text.size() * sizeof(char16_t)};
}

struct CFoundKey {
    std::int64_t parent = 0;
    std::int64_t id = 0;
    bool isVolatile = false;
};

// ERROR_KEY_DELETED (1018) when there is none.
DWORD FindById(CHiveDatabase& database, std::int64_t id, CFoundKey& key) {
    CQuery query(database, Sql::KeyById);
    query.Bind(id);
    if (!query.Row()) return query.Error() ? query.Error() : static_cast<DWORD>(ERROR_KEY_DELETED);
    key = {query.Number(0), id, query.Number(1) != 0};
    return ERROR_SUCCESS;
}

// ERROR_FILE_NOT_FOUND (2) when there is none; then `key` stays.
DWORD FindBelow(CHiveDatabase& database, std::int64_t parent, std::u16string_view name, CFoundKey& key) {
    const CStoredName stored(name);
    CQuery query(database, Sql::KeyByName);
    query.Bind(parent).Bind(stored.Bytes());
    if (!query.Row()) return query.Error() ? query.Error() : static_cast<DWORD>(ERROR_FILE_NOT_FOUND);
    key = {parent, query.Number(0), query.Number(1) != 0};
    return ERROR_SUCCESS;
}

DWORD AddBelow(CHiveDatabase& database, const CKeyPath& path, bool isVolatile, CFoundKey& key) {
    std::int64_t id = 0;
    {
        CQuery query(database, Sql::NextId);
        if (!query.Row()) return query.Error() ? query.Error() : static_cast<DWORD>(ERROR_REGISTRY_CORRUPT);
        id = query.Number(0);
        // The row is not stored before the statement has run to its end.
        if (const DWORD error = query.Execute()) return error;
    }
    const CStoredName stored(path.Name());
    CQuery query(database, Sql::AddKey);
    query.Bind(key.id).Bind(stored.Bytes()).Bind(id).Bind(AsBytes(path.Name()));
    if (const DWORD error = (isVolatile ? query.Bind(BootId()) : query.BindNull()).Execute()) return error;
    key = {key.id, id, isVolatile};
    return ERROR_SUCCESS;
}

DWORD RemoveSecurity(CHiveDatabase& database, std::int64_t key) {
    bool has = false;
    if (const DWORD error = database.HasSecurity(has)) return error;
    return has ? CQuery(database, Sql::RemoveSecurity).Bind(key).Execute() : static_cast<DWORD>(ERROR_SUCCESS);
}

// Before anything is changed.
DWORD CheckLengths(const CPathStart& start, LPCWSTR path) noexcept {
    CKeyPath check(start, path);
    while (check.Next()) {
    }
    return check.Error();
}

}  // namespace

DWORD CCreateKey::Make(CHiveDatabase& database) {
    if (const DWORD error = CheckLengths(m_start.path, m_path)) return error;
    CFoundKey key;
    if (const DWORD error = FindById(database, m_start.id, key)) return error;
    CKeyPath path(m_start.path, m_path);
    while (path.Next()) {
        const DWORD found = FindBelow(database, key.id, path.Name(), key);
        m_lastIsNew = found == ERROR_FILE_NOT_FOUND;
        if (!found) continue;
        if (!m_lastIsNew) return found;
        if (key.isVolatile && !m_isVolatile) return ERROR_CHILD_MUST_BE_VOLATILE;
        if (const DWORD error = AddBelow(database, path, m_isVolatile, key)) return error;
        m_made.push_back({key.parent, key.id, std::u16string(path.Name())});
    }
    m_id = key.id;
    m_end = path.End();
    return path.Error();
}

void CCreateKey::CarryOver(CHiveView& view) const {
    for (const CMade& made : m_made) view.AddKey(made.parent, made.id, made.name, m_isVolatile);
}

DWORD CRemoveKey::Make(CHiveDatabase& database) {
    CFoundKey key;
    if (const DWORD error = FindById(database, m_start.id, key)) return error;
    CKeyPath path(m_start.path, m_path);
    while (path.Next()) {
        if (const DWORD error = FindBelow(database, key.id, path.Name(), key)) return error;
    }
    if (path.Error()) return path.Error();
    const bool isPredefined = m_start.path.isClassesRoot && (!m_path || !*m_path);
    if (isPredefined || key.id == kRootKey) return ERROR_ACCESS_DENIED;
    {
        CQuery below(database, Sql::HasKeys);
        if (below.Bind(key.id).Row()) return ERROR_ACCESS_DENIED;
        if (below.Error()) return below.Error();
    }
    m_parent = key.parent;
    m_id = key.id;
    if (const DWORD error = CQuery(database, Sql::RemoveValues).Bind(m_id).Execute()) return error;
    if (const DWORD error = RemoveSecurity(database, m_id)) return error;
    return CQuery(database, Sql::RemoveKey).Bind(m_id).Execute();
}

DWORD CPutValue::Make(CHiveDatabase& database) {
    if (const DWORD error = m_key.Make(database)) return error;
    const CStoredName stored(m_name);
    CQuery query(database, Sql::PutValue);
    query.Bind(m_key.Id()).Bind(stored.Bytes()).Bind(AsBytes(m_name)).Bind(std::int64_t{m_type}).Bind(m_data);
    return query.Execute();
}

void CPutValue::CarryOver(CHiveView& view) const {
    m_key.CarryOver(view);
    view.PutValue(m_key.Id(), m_name, m_type, m_data);
}

DWORD CRemoveValue::Make(CHiveDatabase& database) {
    CFoundKey key;
    if (const DWORD error = FindById(database, m_start.id, key)) return error;
    CKeyPath path(m_start.path, nullptr);
    while (path.Next()) {
        if (const DWORD error = FindBelow(database, key.id, path.Name(), key)) return error;
    }
    m_id = key.id;
    const CStoredName stored(m_name);
    const std::int64_t changes = database.Changes();
    CQuery query(database, Sql::RemoveValue);
    if (const DWORD error = query.Bind(m_id).Bind(stored.Bytes()).Execute()) return error;
    return database.Changes() == changes ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

DWORD CPutSecurity::Make(CHiveDatabase& database) {
    if (const DWORD error = m_key.Make(database)) return error;
    if (m_list.empty()) return RemoveSecurity(database, m_key.Id());
    if (const DWORD error = database.Run(Sql::MakeSecurity)) return error;
    return CQuery(database, Sql::PutSecurity).Bind(m_key.Id()).Bind(m_list).Execute();
}

void CPutSecurity::CarryOver(CHiveView& view) const {
    m_key.CarryOver(view);
    view.PutSecurity(m_key.Id(), m_list);
}
