#include "RegistryPath.h"

#include <iterator>

namespace {

constexpr std::u16string_view kClassesRoot[] = {u"SOFTWARE", u"Classes"};
constexpr std::u16string_view kNode32 = u"Wow6432Node";
constexpr std::u16string_view kSoftware = u"SOFTWARE";

const WCHAR* SkipSeparators(const WCHAR* path) noexcept {
    while (*path == u'\\') ++path;
    return path;
}

}  // namespace

CKeyPath::CKeyPath(const CPathStart& start, LPCWSTR path) noexcept
    : m_rest(path ? path : u""),
      m_spot(start.spot),
      m_is32BitView(start.is32BitView),
      m_isSpecial(start.is32BitView || start.isClassesRoot),
      m_prefix(static_cast<std::uint8_t>(start.isClassesRoot ? 0 : std::size(kClassesRoot))) {
    if (*m_rest == u'\\') m_error = ERROR_BAD_PATHNAME;
}

bool CKeyPath::Next() noexcept {
    if (m_isSpecial) return NextSpecial();
    if (m_error) return false;
    const std::u16string_view name = ComponentAt(m_rest);
    m_rest = SkipSeparators(m_rest + name.size());
    return Take(name);
}

bool CKeyPath::NextSpecial() noexcept {
    if (m_error) return false;
    const bool isPrefix = m_prefix < std::size(kClassesRoot);
    const std::u16string_view name = isPrefix ? kClassesRoot[m_prefix] : ComponentAt(m_rest);
    if (m_is32BitView && m_spot == Spot::Software && !SameName(name, kNode32)) return Take(kNode32);
    if (isPrefix) {
        ++m_prefix;
    } else {
        m_rest = SkipSeparators(m_rest + name.size());
    }
    return Take(name);
}

bool CKeyPath::Take(std::u16string_view name) noexcept {
    if (name.empty()) return false;
    if (name.size() > kMaxKeyName) {
        m_error = ERROR_INVALID_PARAMETER;
        return false;
    }
    m_name = name;
    const bool isSoftware = m_spot == Spot::MachineRoot && SameName(name, kSoftware);
    m_spot = isSoftware ? Spot::Software : Spot::Elsewhere;
    return true;
}
