#include "svinfo/PolFile.h"

#include "svinfo/Text.h"

namespace {

constexpr std::string_view kSignature("PReg\x01\0\0\0", 8);

// Fields by their own lengths: names and data may hold every separator, and data of an odd size leaves whatever follows
// at an odd place.
class CReader {
  public:
    explicit CReader(std::string_view bytes) noexcept : m_bytes(bytes) {}

    bool AtEnd() const noexcept { return m_at == m_bytes.size(); }
    std::size_t Offset() const noexcept { return m_at; }

    std::string_view Take(std::size_t size, const char* expected) {
        if (size > m_bytes.size() - m_at) Fail(expected);
        const std::string_view taken = m_bytes.substr(m_at, size);
        m_at += size;
        return taken;
    }
    void Expect(std::string_view wanted, const char* expected) {
        if (m_bytes.substr(m_at, wanted.size()) != wanted) Fail(expected);
        m_at += wanted.size();
    }
    void Expect(char separator) {
        const char unit[] = {separator, 0};
        const char expected[] = {'\'', separator, '\'', 0};
        Expect(std::string_view(unit, 2), expected);
    }
    DWORD Number(const char* expected) {
        const std::string_view bytes = Take(4, expected);
        DWORD number = 0;
        for (std::size_t i = 4; i-- > 0;) number = number << 8 | static_cast<unsigned char>(bytes[i]);
        return number;
    }
    wstr Text(const char* expected) {
        wstr text;
        for (;;) {
            const std::string_view unit = Take(2, expected);
            const auto value =
                static_cast<WCHAR>(static_cast<unsigned char>(unit[0]) | static_cast<unsigned char>(unit[1]) << 8);
            if (value == 0) return text;
            text += value;
        }
    }

  private:
    std::string Found() const {
        const std::string_view bytes = m_bytes.substr(m_at, 4);
        return bytes.empty() ? "the end of the file"
                             : HexText(reinterpret_cast<const BYTE*>(bytes.data()), bytes.size());
    }
    [[noreturn]] void Fail(const char* expected) const {
        throw CBadPolFile{m_at, "found " + Found() + ", expected " + expected};
    }

    std::string_view m_bytes;
    std::size_t m_at = 0;
};

CPolRecord ReadRecord(CReader& reader) {
    CPolRecord record;
    record.offset = reader.Offset();
    reader.Expect('[');
    record.key = reader.Text("a key and its NUL");
    reader.Expect(';');
    record.name = reader.Text("a value name and its NUL");
    reader.Expect(';');
    record.type = reader.Number("a type of 4 bytes");
    reader.Expect(';');
    const DWORD size = reader.Number("a size of 4 bytes");
    reader.Expect(';');
    const std::string_view data = reader.Take(size, "as many bytes of data as the size says");
    record.data.assign(data.begin(), data.end());
    reader.Expect(']');
    return record;
}

void PutUnit(std::string& out, unsigned unit) {
    out += static_cast<char>(unit & 0xFF);
    out += static_cast<char>(unit >> 8);
}

void PutText(std::string& out, const wstr& text) {
    for (const WCHAR unit : text) PutUnit(out, unit);
    PutUnit(out, 0);
}

void PutNumber(std::string& out, DWORD number) {
    PutUnit(out, number & 0xFFFF);
    PutUnit(out, number >> 16);
}

}  // namespace

std::vector<CPolRecord> ReadPolFile(std::string_view bytes) {
    CReader reader(bytes);
    reader.Expect(kSignature.substr(0, 4), "'PReg'");
    reader.Expect(kSignature.substr(4), "the version 1");
    std::vector<CPolRecord> records;
    while (!reader.AtEnd()) records.push_back(ReadRecord(reader));
    return records;
}

std::string WritePolFile(const std::vector<CPolRecord>& records) {
    std::string out(kSignature);
    for (const CPolRecord& record : records) {
        PutUnit(out, '[');
        PutText(out, record.key);
        PutUnit(out, ';');
        PutText(out, record.name);
        PutUnit(out, ';');
        PutNumber(out, record.type);
        PutUnit(out, ';');
        PutNumber(out, static_cast<DWORD>(record.data.size()));
        PutUnit(out, ';');
        out.append(record.data.begin(), record.data.end());
        PutUnit(out, ']');
    }
    return out;
}
