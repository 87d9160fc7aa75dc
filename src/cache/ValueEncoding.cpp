#include "cache/ValueEncoding.h"

#include <bit>
#include <cstring>

#include "cache/AnySequence.h"
#include "cache/CryptBlobs.h"

namespace {

GUID GuidOf(const OV_SERVER_VALUE& value) noexcept {
    GUID id;
    static_assert(sizeof id == sizeof value.data + sizeof value.items);
    std::memcpy(&id, &value.data, sizeof value.data);
    std::memcpy(reinterpret_cast<BYTE*>(&id) + sizeof value.data, &value.items, sizeof value.items);
    return id;
}

// Last one first, as the writer wants it.
void WriteContent(CDerWriter& writer, const CPolicyValue& value) {
    const OV_SERVER_VALUE& raw = value.Raw();
    switch (value.Type()) {
        case OV_TYPE_LONG:
            return COVIntBlob::Write(writer, static_cast<LONG>(value.Dword()));
        case OV_TYPE_STRING: {
            const LPCWSTR text = value.Text();
            return COVWStrBlob::Write(writer, text, text ? wcslen(text) : 0);
        }
        case OV_TYPE_ULONG:
        case OV_TYPE_DWORD:
            return COVULongBlob::Write(writer, value.Dword());
        case OV_TYPE_GUID:
            return COVGUIDBlob::Write(writer, GuidOf(raw));
        case OV_TYPE_DOUBLE:
            return COVDoubleBlob::Write(writer, std::bit_cast<double>(value.Number()));
        case OV_TYPE_FILETIME:
            return CTimeBlob::Write(writer,
                                    {static_cast<DWORD>(value.Number()), static_cast<DWORD>(value.Number() >> 32)});
        case OV_TYPE_BLOB:
            return COVAnyBlob::Write(writer,
                                     {reinterpret_cast<const BYTE*>(raw.items), static_cast<std::size_t>(raw.data)});
        case OV_TYPE_UINT64:
        case OV_TYPE_QWORD:
            return COVULongBlob::Write(writer, value.Number());
        case OV_TYPE_ARRAY: {
            const std::span<const CPolicyValue> elements = value.Elements();
            for (std::size_t i = elements.size(); i-- > 0;) EncodeValue(elements[i], writer);
            return COVULongBlob::Write(writer, elements.size());
        }
        default:
            return;
    }
}

class CValueDecoder {
  public:
    explicit CValueDecoder(CDecodeBudget& budget) noexcept : m_budget(budget) {}
    void Decode(CDerBytes encoded, CPolicyValue& value);

  private:
    void DecodeArray(CAnySequence& sequence, CPolicyValue& value);

    CDecodeBudget& m_budget;
    unsigned m_depth = 8;  // arrays that may still be entered
};

void CValueDecoder::Decode(CDerBytes encoded, CPolicyValue& value) {
    value.Clear();
    CAnySequence sequence(encoded);
    DWORD type = OV_TYPE_NONE;
    sequence.ReadULong(type);
    switch (type) {
        case OV_TYPE_LONG: {
            LONG number = 0;
            sequence.ReadInt(number);
            return value.SetNumber(type, static_cast<DWORD>(number));
        }
        case OV_TYPE_STRING: {
            wstr text;
            sequence.ReadString(text);
            return value.SetString(text.data(), text.size());
        }
        case OV_TYPE_ULONG:
        case OV_TYPE_DWORD: {
            DWORD number = 0;
            sequence.ReadULong(number);
            return value.SetNumber(type, number);
        }
        case OV_TYPE_GUID: {
            GUID id = {};
            sequence.ReadGuid(id);
            return value.SetGuid(id);
        }
        case OV_TYPE_DOUBLE: {
            double number = 0;
            sequence.ReadDouble(number);
            return value.SetDouble(number);
        }
        case OV_TYPE_FILETIME: {
            FILETIME time = {};
            sequence.ReadTime(time);
            return value.SetFileTime(time);
        }
        case OV_TYPE_BLOB: {
            CDerBytes bytes;
            sequence.ReadBlob(bytes);
            return value.SetBlob(bytes.data(), bytes.size());
        }
        case OV_TYPE_UINT64:
        case OV_TYPE_QWORD: {
            ULONGLONG number = 0;
            sequence.ReadULong64(number);
            return value.SetNumber(type, number);
        }
        case OV_TYPE_ARRAY:
            return DecodeArray(sequence, value);
        default:
            return value.SetNumber(type, 0);
    }
}

void CValueDecoder::DecodeArray(CAnySequence& sequence, CPolicyValue& value) {
    if (m_depth == 0) return;
    DWORD count = 0;
    sequence.ReadULong(count);
    const DWORD present = sequence.Left();
    const DWORD missing = count > present ? count - present : 0;
    if (missing > m_budget.missing) {
        count = present;
    } else {
        m_budget.missing -= missing;
    }
    --m_depth;
    value.SetNumber(OV_TYPE_ARRAY, 0);
    for (DWORD i = 0; i < count; ++i) {
        CPolicyValue element;
        Decode(sequence.Next(), element);
        value.Append(std::move(element));
    }
    ++m_depth;
}

}  // namespace

void EncodeValue(const CPolicyValue& value, CDerWriter& out) {
    const std::size_t end = out.Size();
    WriteContent(out, value);
    COVULongBlob::Write(out, value.Type());
    out.Close(DerTag::kSequence, end);
}

void EncodeItem(const CPolicyItem& item, CDerWriter& out) {
    const std::size_t end = out.Size();
    EncodeValue(item.value, out);
    COVWStrBlob::Write(out, item.name.c_str(), item.name.size());
    out.Close(DerTag::kSequence, end);
}

void DecodeValue(CDerBytes encoded, CPolicyValue& value) {
    CDecodeBudget budget;
    CValueDecoder(budget).Decode(encoded, value);
}

void DecodeItem(CDerBytes encoded, CPolicyItem& item, CDecodeBudget& budget) {
    item.name.clear();
    item.value.Clear();
    CAnySequence sequence(encoded);
    sequence.ReadString(item.name);
    CValueDecoder(budget).Decode(sequence.Next(), item.value);
}
