#include "module/ValueWalk.h"

#include <cstring>

#include "module/Failure.h"

namespace {

constexpr DWORD kSpare = 10;               // beyond what was measured, so that small growth needs no second look
constexpr DWORD kLongestName = 16383 + 1;  // the longest name that a value can have, and its NUL

template <class Element>
void Grow(std::vector<Element>& buffer, std::size_t size) {
    try {
        buffer.resize(size);
    } catch (const std::bad_alloc&) {
        throw _com_error(E_OUTOFMEMORY);
    }
}

template <class Number>
bool CopyNumber(std::span<const BYTE> data, Number& number) noexcept {
    if (data.size() != sizeof number) return false;
    std::memcpy(&number, data.data(), sizeof number);
    return true;
}

}  // namespace

LONG CValueWalk::Measure() noexcept {
    return RegQueryInfoKeyW(m_key, nullptr, nullptr, nullptr, nullptr, &m_longestSubkey, nullptr, &m_count,
                            &m_longestName, &m_longestData, nullptr, nullptr);
}

bool CValueWalk::Next() {
    if (m_name.empty()) Grow(m_name, std::size_t{m_longestName} + kSpare);
    if (m_data.empty()) Grow(m_data, std::size_t{m_longestData} + kSpare);
    for (;;) {
        auto length = static_cast<DWORD>(m_name.size());
        m_size = static_cast<DWORD>(m_data.size());
        const LONG error =
            RegEnumValueW(m_key, m_index, m_name.data(), &length, nullptr, &m_type, m_data.data(), &m_size);
        if (error == ERROR_SUCCESS) {
            ++m_index;
            return true;
        }
        if (error != ERROR_MORE_DATA) return false;
        // The size of the data is told also when it is the name that has no room.
        if (m_name.size() >= kLongestName && m_data.size() >= m_size) return false;
        Grow(m_name, kLongestName);
        if (m_data.size() < m_size) Grow(m_data, std::size_t{m_size} + kSpare);
    }
}

bool CValueWalk::AsDword(DWORD& number) const noexcept {
    return m_type == REG_DWORD && CopyNumber(Data(), number);
}

bool CValueWalk::AsQword(ULONGLONG& number) const noexcept {
    return m_type == REG_QWORD && CopyNumber(Data(), number);
}

wstr CValueWalk::AsText() const {
    wstr text(m_size / sizeof(WCHAR), 0);
    std::memcpy(text.data(), m_data.data(), text.size() * sizeof(WCHAR));
    const std::size_t end = text.find(WCHAR{0});
    if (end != wstr::npos) text.resize(end);
    return text;
}
