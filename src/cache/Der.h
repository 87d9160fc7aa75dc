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
    void Allocate(std::size_t size);  // what it holds then is not set
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
// A writer without room only counts. What has been counted is the room that the same calls then fill.
class CDerWriter {
  public:
    CDerWriter() noexcept = default;
    explicit CDerWriter(std::span<BYTE> room) noexcept : m_end(room.data() + room.size()) {}

    std::size_t Size() const noexcept { return m_size; }

    // In front of all that was written.
    void Byte(BYTE byte) noexcept {
        ++m_size;
        if (m_end) *Front() = byte;
    }
    void Bytes(CDerBytes bytes) noexcept;
    void Units(const WCHAR* units, std::size_t count) noexcept;  // the upper byte of each first

    // Tag and length in front of what was written since the size was `end`.
    void Close(DerTag tag, std::size_t end) noexcept;

  private:
    BYTE* Front() const noexcept { return m_end - m_size; }

    BYTE* m_end = nullptr;
    std::size_t m_size = 0;
};

// Encodes what `write` writes into one block of just that size.
template <class Write>
void EncodeInto(CCryptBlob& out, Write write) {
    CDerWriter count;
    write(count);
    out.Allocate(count.Size());
    CDerWriter writer(out.Bytes());
    write(writer);
}

struct DerElement {
    DerTag tag;
    CDerBytes content;
    CDerBytes whole;
};

// The first element of `bytes`; what follows it does not matter. Nothing for an indefinite length, one of more than
// four bytes, and one that goes beyond `bytes`. Lengths that could be shorter are taken.
std::optional<DerElement> ReadElement(CDerBytes bytes) noexcept;
// Its content, if it has that tag.
std::optional<CDerBytes> ReadContent(CDerBytes bytes, DerTag tag) noexcept;
