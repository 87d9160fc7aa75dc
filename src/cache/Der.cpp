#include "cache/Der.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "module/Failure.h"

namespace {

constexpr BYTE kLongForm = 0x80;

// Eight units at once: their bytes change places.
void CopySwapped(const WCHAR* units, std::size_t count, BYTE* out) noexcept {
    using Block = std::uint16_t __attribute__((vector_size(16)));
    constexpr std::size_t kAtOnce = sizeof(Block) / sizeof(WCHAR);
    std::size_t i = 0;
    for (; i + kAtOnce <= count; i += kAtOnce) {
        Block block;
        std::memcpy(&block, units + i, sizeof block);
        block = block << 8 | block >> 8;
        std::memcpy(out + i * sizeof(WCHAR), &block, sizeof block);
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

void CDerWriter::Grow(std::size_t size) {
    const CDerBytes written = Written();
    CCryptBlob larger;
    larger.Allocate(written.size() + written.size() / 2 + size);
    const std::size_t front = larger.Bytes().size() - written.size();
    if (!written.empty()) std::memcpy(larger.Bytes().data() + front, written.data(), written.size());
    m_room = std::move(larger);
    m_front = front;
}

void CDerWriter::Bytes(CDerBytes bytes) {
    if (!bytes.empty()) std::memcpy(Prepend(bytes.size()), bytes.data(), bytes.size());
}

void CDerWriter::Units(const WCHAR* units, std::size_t count) {
    CopySwapped(units, count, Prepend(count * sizeof(WCHAR)));
}

void CDerWriter::Integer(ULONGLONG number, std::size_t length) {
    // All nine bytes at once, of which those that are not wanted are given back.
    BYTE all[1 + sizeof number] = {};
    for (std::size_t i = 0; i < sizeof number; ++i) all[sizeof number - i] = static_cast<BYTE>(number >> (8 * i));
    std::memcpy(Prepend(sizeof all), all, sizeof all);
    m_front += sizeof all - length;
}

void CDerWriter::CloseLong(DerTag tag, std::size_t length) {
    std::size_t count = 1;
    while (length >> (8 * count)) ++count;  // most lengths here take one byte more
    BYTE* const head = Prepend(2 + count);
    head[0] = static_cast<BYTE>(tag);
    head[1] = static_cast<BYTE>(kLongForm | count);
    for (std::size_t at = 1 + count; at > 1; --at, length >>= 8) head[at] = static_cast<BYTE>(length);
}

std::optional<DerElement> ReadElement(CDerBytes bytes) noexcept {
    if (bytes.size() < 2) return std::nullopt;
    std::size_t head = 2;
    std::size_t length = bytes[1];
    if (length >= kLongForm) {
        const std::size_t count = length - kLongForm;
        if (count == 0 || count > sizeof(DWORD) || bytes.size() - head < count) return std::nullopt;
        length = 0;
        for (; head < 2 + count; ++head) length = length << 8 | bytes[head];
        if (length == 0) return std::nullopt;  // of the overlong lengths the one that the platform refuses
    }
    if (bytes.size() - head < length) return std::nullopt;
    return DerElement{static_cast<DerTag>(bytes[0]), bytes.subspan(head, length), bytes.first(head + length)};
}

std::optional<CDerBytes> ReadContent(CDerBytes bytes, DerTag tag) noexcept {
    const std::optional<DerElement> element = ReadElement(bytes);
    if (!element || element->tag != tag) return std::nullopt;
    return element->content;
}
