// The changes that the registry calls make to a hive.
#pragma once

#include <string>
#include <vector>

#include "Hive.h"
#include "RegistryPath.h"

// The key that a call starts from: a handle's, or a predefined one.
struct CChangeStart {
    std::int64_t id = kRootKey;
    CPathStart path;
};

// Makes the keys of a path that are missing. ERROR_CHILD_MUST_BE_VOLATILE (1021) for a key that would outlive the one
// above it, ERROR_INVALID_PARAMETER (87) for a component that is too long.
class CCreateKey : public CHiveChange {
  public:
    CCreateKey(const CChangeStart& start, LPCWSTR path, bool isVolatile) noexcept
        : m_start(start), m_path(path), m_isVolatile(isVolatile) {}

    bool MakesHive() const noexcept override { return true; }
    DWORD Make(CHiveDatabase& database) override;
    void CarryOver(CHiveView& view) const override;

    std::int64_t Id() const noexcept { return m_id; }
    Spot End() const noexcept { return m_end; }
    bool IsNew() const noexcept { return m_lastIsNew; }

  private:
    struct CMade {
        std::int64_t parent;
        std::int64_t id;
        std::u16string name;
    };

    const CChangeStart m_start;
    const LPCWSTR m_path;
    const bool m_isVolatile;
    std::vector<CMade> m_made;
    std::int64_t m_id = 0;
    Spot m_end = Spot::Elsewhere;
    bool m_lastIsNew = false;
};

// ERROR_FILE_NOT_FOUND (2) when there is no such key, ERROR_ACCESS_DENIED (5) for one with keys below it and for the
// root.
class CRemoveKey : public CHiveChange {
  public:
    CRemoveKey(const CChangeStart& start, LPCWSTR path) noexcept : m_start(start), m_path(path) {}

    bool MakesHive() const noexcept override { return false; }
    DWORD Make(CHiveDatabase& database) override;
    void CarryOver(CHiveView& view) const override { view.RemoveKey(m_parent, m_id); }

  private:
    const CChangeStart m_start;
    const LPCWSTR m_path;
    std::int64_t m_parent = 0;
    std::int64_t m_id = 0;
};

// Name and data stay the caller's.
class CPutValue : public CHiveChange {
  public:
    CPutValue(const CChangeStart& start, std::u16string_view name, DWORD type, std::span<const BYTE> data) noexcept
        : m_key(start, nullptr, false), m_start(start), m_name(name), m_type(type), m_data(data) {}

    bool MakesHive() const noexcept override { return true; }
    DWORD Make(CHiveDatabase& database) override;
    void CarryOver(CHiveView& view) const override;

  private:
    CCreateKey m_key;  // HKEY_CLASSES_ROOT itself may be missing
    const CChangeStart m_start;
    const std::u16string_view m_name;
    const DWORD m_type;
    const std::span<const BYTE> m_data;
};

// ERROR_FILE_NOT_FOUND (2) when there is no such value.
class CRemoveValue : public CHiveChange {
  public:
    CRemoveValue(const CChangeStart& start, std::u16string_view name) noexcept : m_start(start), m_name(name) {}

    bool MakesHive() const noexcept override { return false; }
    DWORD Make(CHiveDatabase& database) override;
    void CarryOver(CHiveView& view) const override { view.RemoveValue(m_id, m_name); }

  private:
    const CChangeStart m_start;
    const std::u16string_view m_name;
    std::int64_t m_id = 0;
};

// Gives the key an access list; no bytes take it away. The bytes stay the caller's.
class CPutSecurity : public CHiveChange {
  public:
    CPutSecurity(const CChangeStart& start, std::span<const BYTE> list) noexcept
        : m_key(start, nullptr, false), m_list(list) {}

    bool MakesHive() const noexcept override { return true; }
    DWORD Make(CHiveDatabase& database) override;
    void CarryOver(CHiveView& view) const override;

  private:
    CCreateKey m_key;  // HKEY_CLASSES_ROOT itself may be missing
    const std::span<const BYTE> m_list;
};
