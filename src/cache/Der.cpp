#include "cache/Der.h"

#include <cstring>
#include <new>

#include "module/Failure.h"

namespace {

constexpr std::size_t kLongestShortForm = 0x7F;
constexpr BYTE kLongForm = 0x80;

// Four units at once: their bytes change places.
void CopySwapped(const WCHAR* units, std::size_t count, BYTE* out) noexcept {
    constexpr std::size_t kAtOnce = sizeof(ULONGLONG) / sizeof(WCHAR);
    constexpr ULONGLONG kLower = 0x00FF00FF00FF00FFull;
    std::size_t i = 0;
    for (; i + kAtOnce <= count; i += kAtOnce) {
        ULONGLONG four;
        std::memcpy(&four, units + i, sizeof four);
        four = (four & kLower) << 8 | (four >> 8 & kLower);
        std::memcpy(out + i * sizeof(WCHAR), &four, sizeof four);
    }
    for (; i < count; ++i) {
        out[2 * i] = static_cast<BYTE>(units[i] >> 8);
        out[2 * i + 1] = static_cast<BYTE>(units[i]);
    }
}

}  // namespace

void CCryptBlob::Allocate(std::size_t size) {
    m_bytes.reset(new (std::nothrow) BYTE[size ? size : 1]);
    m_size = m_bytes ? size : 0;
    if (!m_bytes) throw _com_error(E_OUTOFMEMORY);
}

void CDerWriter::Bytes(CDerBytes bytes) noexcept {
    m_size += bytes.size();
    if (m_end && !bytes.empty()) std::memcpy(Front(), bytes.data(), bytes.size());
}

void CDerWriter::Units(const WCHAR* units, std::size_t count) noexcept {
    m_size += count * sizeof(WCHAR);
    if (m_end) CopySwapped(units, count, Front());
}

void CDerWriter::Close(DerTag tag, std::size_t end) noexcept {
    const std::size_t length = m_size - end;
    if (length <= kLongestShortForm) {
        Byte(static_cast<BYTE>(length));
    } else {
        BYTE count = 0;
        for (std::size_t rest = length; rest != 0; rest >>= 8, ++count) Byte(static_cast<BYTE>(rest));
        Byte(kLongForm | count);
    }
    Byte(static_cast<BYTE>(tag));
}

std::optional<DerElement> ReadElement(CDerBytes bytes) noexcept {
    if (bytes.size() < 2) return std::nullopt;
    std::size_t head = 2;
    std::size_t length = bytes[1];
    if (length > kLongestShortForm) {
        const std::size_t count = length - kLongForm;
        if (count == 0 || count > sizeof(DWORD) || bytes.size() - head < count) return std::nullopt;
        length = 0;
        for (; head < 2 + count; ++head) length = length << 8 | bytes[head];
        if (length == 0) return std::nullopt;  // the one overlong length that the platform refuses
    }
    if (bytes.size() - head < length) return std::nullopt;
    return DerElement{static_cast<DerTag>(bytes[0]), bytes.subspan(head, length), bytes.first(head + length)};
}

std::optional<CDerBytes> ReadContent(CDerBytes bytes, DerTag tag) noexcept {
    const std::optional<DerElement> element = ReadElement(bytes);
    if (!element || element->tag != tag) return std::nullopt;
    return element->content;
}
