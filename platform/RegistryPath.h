// The way from one key to another: the components of a path, with those that a view of the registry puts in between.
//
// The 32-bit view of HKEY_LOCAL_MACHINE\SOFTWARE is the key Wow6432Node below it, and HKEY_CLASSES_ROOT is
// SOFTWARE\Classes. Backslashes separate, however many; one at the beginning is an error, at the end they mean nothing.
#pragma once

#include "RegistryName.h"
#include "win/types.h"

// Where a key lies, as far as the views ask.
enum class Spot : std::uint8_t { Elsewhere, MachineRoot, Software };

struct CPathStart {
    Spot spot = Spot::Elsewhere;
    bool is32BitView = false;
    bool isClassesRoot = false;  // the path begins with that of HKEY_CLASSES_ROOT
};

class CKeyPath {
  public:
    // A null path is an empty one.
    CKeyPath(const CPathStart& start, LPCWSTR path) noexcept;

    // The next component; false at the end, and when there is an error.
    bool Next() noexcept;
    std::u16string_view Name() const noexcept { return m_name; }

    // ERROR_BAD_PATHNAME (161) from the beginning, ERROR_INVALID_PARAMETER (87) once a component is too long.
    DWORD Error() const noexcept { return m_error; }
    // What follows the last component.
    LPCWSTR Rest() const noexcept { return m_rest; }
    // Where the last component led.
    Spot End() const noexcept { return m_spot; }

  private:
    bool NextSpecial() noexcept;
    bool Take(std::u16string_view name) noexcept;

    const WCHAR* m_rest;
    std::u16string_view m_name;
    Spot m_spot;
    bool m_is32BitView;
    bool m_isSpecial;       // components may come that the path does not have
    std::uint8_t m_prefix;  // the next component of the prefix
    DWORD m_error = ERROR_SUCCESS;
};
