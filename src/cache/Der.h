// DER (ITU-T X.690): elements of a one-byte tag, a length and content.
#pragma once

#include <memory>
#include <optional>
#include <span>

#include "Platform.h"

using CDerBytes = std::span<const BYTE>;

enum class DerTag : BYTE {
    kInteger = 0x02,
    kOctetString = 0x04,
    kUtf8String = 0x0C,
    kNumericString = 0x12,
    kPrintableString = 0x13,
    kTeletexString = 0x14,
    kVideotexString = 0x15,
    kIA5String = 0x16,
    kUtcTime = 0x17,
    kGeneralizedTime = 0x18,
    kGraphicString = 0x19,
    kVisibleString = 0x1A,
    kGeneralString = 0x1B,
    kBmpString = 0x1E,
    kSequence = 0x30,
};

// An owned block of bytes. Raises 0x8007000E when it cannot be had.
class CCryptBlob {
  public:
    void Allocate(std::size_t size);  // what it held is gone, and what it holds is not set
    std::span<BYTE> Bytes() noexcept { return {m_bytes.get(), m_size}; }
    CDerBytes Bytes() const noexcept { return {m_bytes.get(), m_size}; }

  private:
    std::unique_ptr<BYTE[]> m_bytes;
    std::size_t m_size = 0;
};

// Writes from the last byte to the first, so that the length of a content is known when it is to be written: the parts
// of a sequence are written last one first, then the sequence is closed.
//
//   const std::size_t end = writer.Size();
//   ... the elements, last one first ...
//   writer.Close(DerTag::kSequence, end);
//
// It grows by half when its room is used up. Raises 0x8007000E when that cannot be had.
class CDerWriter {
  public:
    explicit CDerWriter(std::size_t room = 256) : m_front(room) { m_room.Allocate(room); }

    std::size_t Size() const noexcept { return m_room.Bytes().size() - m_front; }
    CDerBytes Written() const noexcept { return m_room.Bytes().subspan(m_front); }

    // All of these go in front of what was written.
    void Bytes(CDerBytes bytes);
    void Integer(ULONGLONG number, std::size_t length);  // its lower bytes, the upper one first; a ninth is 0
    void Units(const WCHAR* units, std::size_t count);   // the upper byte of each first

    // Tag and length in front of what was written since the size was `end`.
    void Close(DerTag tag, std::size_t end) {
        const std::size_t length = Size() - end;
        if (length > kLongestShortForm) return CloseLong(tag, length);
        BYTE* const head = Prepend(2);
        head[0] = static_cast<BYTE>(tag);
        head[1] = static_cast<BYTE>(length);
    }

  private:
    static constexpr std::size_t kLongestShortForm = 0x7F;

    BYTE* Prepend(std::size_t size) {
        if (m_front < size) Grow(size);
        m_front -= size;
        return m_room.Bytes().data() + m_front;
    }
    void CloseLong(DerTag tag, std::size_t length);
    void Grow(std::size_t size);

    CCryptBlob m_room;
    std::size_t m_front;  // where what was written begins
};

struct DerElement {
    DerTag tag;
    CDerBytes content;
    CDerBytes whole;
};

// The first element of `bytes`; what follows it does not matter. Nothing for an indefinite length, one of more than
// four bytes, and one that goes beyond `bytes`. Lengths that could be shorter are taken, but for one of 0.
std::optional<DerElement> ReadElement(CDerBytes bytes) noexcept;
// Its content, if it has that tag.
std::optional<CDerBytes> ReadContent(CDerBytes bytes, DerTag tag) noexcept;
