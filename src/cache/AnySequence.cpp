#include "cache/AnySequence.h"

#include "cache/CryptBlobs.h"

CAnySequence::CAnySequence(CDerBytes encoded) noexcept {
    const std::optional<CDerBytes> content = ReadContent(encoded, DerTag::kSequence);
    if (!content) return;
    DWORD count = 0;
    for (CDerBytes rest = *content; !rest.empty(); ++count) {
        const std::optional<DerElement> element = ReadElement(rest);
        if (!element) return;
        rest = rest.subspan(element->whole.size());
    }
    m_rest = *content;
    m_count = count;
}

CDerBytes CAnySequence::Next() noexcept {
    const std::optional<DerElement> element = ReadElement(m_rest);
    if (!element) return {};
    m_rest = m_rest.subspan(element->whole.size());
    ++m_cursor;
    return element->whole;
}

void CAnySequence::ReadULong(DWORD& out) noexcept {
    ULONGLONG number;
    if (COVULongBlob::Read(Next(), number, sizeof out)) out = static_cast<DWORD>(number);
}

void CAnySequence::ReadULong64(ULONGLONG& out) noexcept {
    COVULongBlob::Read(Next(), out, sizeof out);
}

void CAnySequence::ReadInt(LONG& out) noexcept {
    COVIntBlob::Read(Next(), out);
}

void CAnySequence::ReadString(wstr& out) {
    COVWStrBlob::Read(Next(), out);
}

void CAnySequence::ReadGuid(GUID& out) noexcept {
    COVGUIDBlob::Read(Next(), out);
}

void CAnySequence::ReadDouble(double& out) {
    COVDoubleBlob::Read(Next(), out);
}

void CAnySequence::ReadTime(FILETIME& out) {
    const CDerBytes element = Next();
    if (!element.empty()) CTimeBlob::Read(element, out);
}

void CAnySequence::ReadBlob(CDerBytes& out) noexcept {
    COVAnyBlob::Read(Next(), out);
}
