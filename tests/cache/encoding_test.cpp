// DER, both ways: the recorded answers of an independent implementation, and items byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "cache/AnySequence.h"
#include "cache/CryptBlobs.h"
#include "cache/ValueEncoding.h"
#include "support/Values.h"
#include "support/Vectors.h"

namespace {

std::string Chars(CDerBytes bytes) {
    return {bytes.begin(), bytes.end()};
}
CDerBytes Bytes(const std::string& text) {
    return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}
std::string FromHex(std::string digits) {
    std::erase(digits, ' ');
    return vectors::Bytes(vectors::Row(digits));
}

// "fill:N" stands for N bytes 5A.
std::string Input(const std::string& in) {
    return in.starts_with("fill:") ? std::string(std::stoul(in.substr(5)), '\x5A') : vectors::Bytes(vectors::Row(in));
}

template <class Write>
std::string Encoded(Write write) {
    CDerWriter writer(1);  // so that it has to grow
    write(writer);
    return Chars(writer.Written());
}

std::uint32_t Fnv1a(const std::string& bytes) {
    std::uint32_t hash = 0x811C9DC5;
    for (const char c : bytes) hash = (hash ^ static_cast<BYTE>(c)) * 0x01000193;
    return hash;
}

// The expected encoding of a row; the answer in place of a doubtful one, if there is any.
void Check(const vectors::Row& row, const std::string& encoded) {
    if (row.contains("flag") && !row.contains("expect")) return;
    const vectors::Row& answer = row.contains("expect") ? row["expect"] : row;
    if (answer.contains("der")) {
        EXPECT_EQ(encoded, vectors::Bytes(answer["der"])) << row["id"];
    } else {
        EXPECT_EQ(encoded.substr(0, 32), vectors::Bytes(answer["der_head"])) << row["id"];
        EXPECT_EQ(Fnv1a(encoded), vectors::Hex(answer["der_fnv1a32"])) << row["id"];
    }
}

TEST(DerVectors, Encodings) {
    for (const vectors::Row& row : vectors::LoadWhere("der.jsonl", "op", "enc_blob")) {
        const std::string in = Input(row["in"]);
        const int type = row["type"];
        // Numbers are written of 4 and 8 bytes.
        if (type != 25 && in.size() > (type == 28 ? 4 : 8)) continue;
        const bool negative = type == 28 && !in.empty() && in.back() < 0;
        ULONGLONG number = negative ? ~0ull : 0;
        for (std::size_t i = in.size(); i-- > 0;) number = number << 8 | static_cast<BYTE>(in[i]);
        Check(row, Encoded([&](CDerWriter& writer) {
                  if (type == 25) COVAnyBlob::Write(writer, Bytes(in));
                  if (type == 28) COVIntBlob::Write(writer, static_cast<LONG>(number));
                  if (type == 38) COVULongBlob::Write(writer, number);
              }));
    }
    int texts = 0;
    for (const vectors::Row& row : vectors::LoadWhere("der.jsonl", "op", "enc_name")) {
        // What is written are texts with their NUL.
        const std::string in = Input(row["in"]);
        if (row["value_type"] != 12 || in.size() % 2 || !in.ends_with(std::string(2, '\0'))) continue;
        wstr text;
        for (std::size_t i = 0; i + 2 < in.size(); i += 2) {
            text += static_cast<WCHAR>(static_cast<BYTE>(in[i]) | static_cast<BYTE>(in[i + 1]) << 8);
        }
        ++texts;
        Check(row, Encoded([&](CDerWriter& writer) { COVWStrBlob::Write(writer, text.data(), text.size()); }));
    }
    EXPECT_GE(texts, 3);
    for (const vectors::Row& row : vectors::LoadWhere("der.jsonl", "op", "enc_seq")) {
        std::vector<std::string> parts;
        std::stringstream in(row["in"] == "-" ? std::string() : row["in"].get<std::string>());
        for (std::string part; std::getline(in, part, ',');) parts.push_back(Input(part));
        Check(row, Encoded([&](CDerWriter& writer) {
                  for (std::size_t i = parts.size(); i-- > 0;) writer.Bytes(Bytes(parts[i]));
                  writer.Close(DerTag::kSequence, 0);
              }));
    }
}

TEST(DerVectors, Times) {
    for (const vectors::Row& row : vectors::LoadWhere("der.jsonl", "op", "enc_time")) {
        const ULONGLONG ticks = std::stoull(row["filetime"].get<std::string>());
        const FILETIME time = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
        Check(row, Encoded([&](CDerWriter& writer) { CTimeBlob::Write(writer, time); }));
    }
    CDerWriter writer;
    EXPECT_THROW(CTimeBlob::Write(writer, {0, 0x80000000}), _com_error);
    EXPECT_THROW(CTimeBlob::Write(writer, {0xFFFFFFFF, 0x7FFFFFFF}), _com_error) << "a year of five digits";
}

// The sizes of numbers that are read, largest first: a number is read by the smallest room that it fits into, and 0 by
// every other.
std::string NumberBytes(int type, const std::string& der, bool& ok) {
    LONG number = 0x55555555;
    ULONGLONG wide = 0x5555555555555555;
    ok = type == 28 ? COVIntBlob::Read(Bytes(der), number) : COVULongBlob::Read(Bytes(der), wide, sizeof wide);
    if (type == 28) wide = static_cast<DWORD>(number);
    std::string bytes;
    for (; wide != 0; wide >>= 8) bytes += static_cast<char>(wide);
    return bytes;
}

TEST(DerVectors, Decodings) {
    int asked = 0;
    for (const vectors::Row& row : vectors::LoadWhere("der.jsonl", "op", "dec")) {
        if (row.contains("flag") && !row.contains("expect")) continue;
        const vectors::Row& answer = row.contains("expect") ? row["expect"] : row;
        const std::string der = vectors::Bytes(row["der"]);
        const bool expected = answer["ok"] == 1;
        ++asked;
        SCOPED_TRACE(row["id"].get<std::string>());
        switch (row["type"].get<int>()) {
            case 25: {
                CDerBytes content;
                ASSERT_EQ(COVAnyBlob::Read(Bytes(der), content), expected);
                if (!expected) break;
                EXPECT_EQ(Chars(content), vectors::Bytes(answer["value"]));
                break;
            }
            case 28:
            case 38: {
                const int type = row["type"];
                bool ok = false;
                const std::string bytes = NumberBytes(type, der, ok);
                ASSERT_EQ(ok, expected);
                if (!expected) break;
                // Numbers of more bytes than the room are 0; zeros at the upper end are no part of one.
                std::string value = vectors::Bytes(answer["value"]);
                if (value.size() > (type == 28 ? 4u : 8u)) value.clear();
                value.resize(value.find_last_not_of('\0') + 1);
                EXPECT_EQ(bytes, value);
                break;
            }
            case 6: {
                CNameValue name;
                ASSERT_EQ(ReadNameValue(Bytes(der), name), expected);
                if (!expected) break;
                EXPECT_EQ(static_cast<int>(name.type), answer["value_type"]);
                wstr text = W("before");
                EXPECT_EQ(COVWStrBlob::Read(Bytes(der), text), answer["value_type"] != 2);
                break;
            }
            case 30: {
                FILETIME time = {};
                if (!expected) {
                    EXPECT_THROW(CTimeBlob::Read(Bytes(der), time), _com_error);
                    break;
                }
                CTimeBlob::Read(Bytes(der), time);
                EXPECT_EQ(std::to_string(ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime),
                          answer["filetime"]);
                break;
            }
            default: {
                CAnySequence sequence(Bytes(der));
                EXPECT_EQ(sequence.Count(), expected ? answer["count"].get<unsigned>() : 0u);
                // The first fifty of them are told.
                for (std::size_t i = 0; expected && i < answer["elements"].size(); ++i) {
                    EXPECT_EQ(Chars(sequence.Next()), vectors::Bytes(answer["elements"][i]));
                }
            }
        }
    }
    EXPECT_GT(asked, 150);
}

// What each string type becomes as text, up to its first NUL.
TEST(DerVectors, Texts) {
    static constexpr BYTE kTags[] = {0, 0, 0, 0x12, 0x13, 0x14, 0x15, 0x16, 0x19, 0x1A, 0x1B, 0, 0x1E};
    int asked = 0;
    for (const vectors::Row& row : vectors::LoadWhere("der.jsonl", "op", "rdn")) {
        const auto type = row["value_type"].get<unsigned>();
        if (row.contains("flag") || type >= std::size(kTags) || kTags[type] == 0 || row["cap"] < row["need"]) continue;
        std::string content = vectors::Bytes(row["in"]);
        if (type == 12) {  // the call is given units as they lie in memory
            for (std::size_t i = 0; i + 1 < content.size(); i += 2) std::swap(content[i], content[i + 1]);
        }
        const std::string der = Encoded([&](CDerWriter& writer) {
            writer.Bytes(Bytes(content));
            writer.Close(static_cast<DerTag>(kTags[type]), 0);
        });
        wstr text;
        ASSERT_TRUE(COVWStrBlob::Read(Bytes(der), text)) << row;
        const std::string out = vectors::Bytes(row["out_utf16le"]);
        wstr expected;
        for (std::size_t i = 0; i + 1 < out.size(); i += 2) {
            const auto unit = static_cast<WCHAR>(static_cast<BYTE>(out[i]) | static_cast<BYTE>(out[i + 1]) << 8);
            if (unit == 0) break;
            expected += unit;
        }
        EXPECT_EQ(text, expected) << row;
        ++asked;
    }
    EXPECT_GE(asked, 10);
    wstr text;
    const std::string utf8 = FromHex("0C 03 C3 A9 FF");
    ASSERT_TRUE(COVWStrBlob::Read(Bytes(utf8), text));
    EXPECT_EQ(text, W("\u00E9\uFFFD"));
}

template <class Set>
CPolicyValue Made(Set set) {
    CPolicyValue value;
    set(value);
    return value;
}

constexpr GUID kId = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};

TEST(ValueEncoding, EachTypeBothWays) {
    const struct {
        CPolicyValue value;
        const char* encoded;
    } cases[] = {
        {Number(OV_TYPE_NONE, 0), "30 03 02 01 00"},
        {Number(OV_TYPE_LONG, 0x7F), "30 06 02 01 01 02 01 7F"},
        {Text(W("abc")), "30 0D 02 01 02 1E 08 00 61 00 62 00 63 00 00"},
        {Text(W("")), "30 07 02 01 02 1E 02 00 00"},
        {Text(W("\u0416\u00FF")), "30 0B 02 01 02 1E 06 04 16 00 FF 00 00"},
        {Number(OV_TYPE_ULONG, 0x7F), "30 06 02 01 03 02 01 7F"},
        {Number(OV_TYPE_DWORD, 1), "30 06 02 01 04 02 01 01"},
        {Number(OV_TYPE_DWORD, 0x80), "30 07 02 01 04 02 02 00 80"},
        {Number(OV_TYPE_DWORD, 0x80000000), "30 0A 02 01 04 02 05 00 80 00 00 00"},
        {Number(OV_TYPE_DWORD, 0xFFFFFFFF), "30 0A 02 01 04 02 05 00 FF FF FF FF"},
        {Made([](auto& value) { value.SetGuid(kId); }),
         "30 15 02 01 05 04 10 00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF"},
        {Made([](auto& value) { value.SetDouble(-0.5); }), "30 0A 02 01 06 16 05 2D 30 2E 35 00"},
        {Made([](auto& value) {
             value.SetFileTime({0xD53E8000, 0x019DB1DE});
         }),
         "30 12 02 01 07 17 0D 37 30 30 31 30 31 30 30 30 30 30 30 5A"},
        {Made([](auto& value) { value.SetBlob("\x00\xFF", 2); }), "30 07 02 01 08 04 02 00 FF"},
        {Number(OV_TYPE_UINT64, 0x100000000), "30 0A 02 01 09 02 05 01 00 00 00 00"},
        {Number(OV_TYPE_QWORD, 0), "30 06 02 01 0A 02 01 00"},
        {Number(OV_TYPE_QWORD, ~0ull), "30 0E 02 01 0A 02 09 00 FF FF FF FF FF FF FF FF"},
        {List({Number(OV_TYPE_QWORD, 1), Number(OV_TYPE_QWORD, 2)}),
         "30 16 02 01 0B 02 01 02 30 06 02 01 0A 02 01 01 30 06 02 01 0A 02 01 02"},
        {List({}), "30 06 02 01 0B 02 01 00"},
        {Number(12, 0), "30 03 02 01 0C"},
    };
    for (const auto& [value, encoded] : cases) {
        SCOPED_TRACE(encoded);
        CDerWriter blob;
        EncodeValue(value, blob);
        EXPECT_EQ(Chars(blob.Written()), FromHex(encoded));
        CPolicyValue decoded = Number(OV_TYPE_QWORD, 77);
        DecodeValue(blob.Written(), decoded);
        ASSERT_EQ(decoded.Type(), value.Type());
        CDerWriter again;
        EncodeValue(decoded, again);
        EXPECT_EQ(Chars(again.Written()), Chars(blob.Written()));
    }
    CDerWriter item;
    EncodeItem({W("A"), Number(OV_TYPE_DWORD, 1)}, item);
    EXPECT_EQ(Chars(item.Written()), FromHex("30 0E 1E 04 00 41 00 00 30 06 02 01 04 02 01 01"));
}

TEST(ValueEncoding, DoublesComeBack) {
    for (const double number : {0.0, -0.0, 0.1, 1e300, -5e-324, 1.7976931348623157e308, 1234567.875}) {
        CDerWriter blob;
        EncodeValue(Made([&](auto& value) { value.SetDouble(number); }), blob);
        CPolicyValue decoded;
        DecodeValue(blob.Written(), decoded);
        EXPECT_EQ(decoded.Number(), Made([&](auto& value) { value.SetDouble(number); }).Number()) << number;
    }
}

// "type data", with the text of a string.
std::string Told(const CPolicyValue& value) {
    std::string text = std::to_string(value.Type());
    if (value.Type() == OV_TYPE_STRING) {
        text += " '" +
                (value.Text() ? std::string(wstr_view(value.Text()).begin(), wstr_view(value.Text()).end()) : "-") +
                "'";
    } else {
        text += " " + std::to_string(value.Number());
    }
    return text;
}

TEST(ValueEncoding, DamageGivesZeroesOrNothing) {
    const struct {
        const char* encoded;
        const char* told;
    } cases[] = {
        {"", "0 0"},
        {"31 00", "0 0"},
        {"30 06 02 01 04 02 02 01", "0 0"},              // its last element is cut off
        {"30 03 02 01 04", "4 0"},                       // nothing behind the type
        {"30 05 02 01 04 05 00", "4 0"},                 // something else behind it
        {"30 0A 02 01 04 02 05 01 00 00 00 00", "4 0"},  // more than 32 bits
        {"30 07 02 01 04 02 02 00 80", "4 128"},
        {"30 06 02 01 01 02 01 FF", "1 255"},  // no sign is carried on
        {"30 08 02 01 04 02 03 FF FF FE", "4 16777214"},
        {"30 07 02 05 01 00 00 00 0A", "0 0"},  // a type beyond all types
        {"30 05 02 01 02 1E 00", "2 ''"},
        {"30 07 02 01 02 04 02 61 62", "2 ''"},  // octets are no text
        {"30 07 02 01 02 0C 02 61 62", "2 'ab'"},
        {"30 09 02 01 02 16 04 61 00 62 63", "2 'a'"},  // up to the NUL
        {"30 08 02 01 02 1E 03 00 61 00", "2 'a'"},     // an odd byte at the end
        {"30 08 02 01 06 16 03 20 2B 31", "6 4607182418800017408"},
        {"30 07 02 01 06 1E 02 00 31", "6 4607182418800017408"},
        {"30 07 02 01 06 16 02 78 00", "6 0"},
        {"30 0B 02 01 06 16 06 31 65 39 39 39 00", "6 9218868437227405312"},  // infinite
        {"30 07 02 01 06 1B 02 31 00", "6 0"},                                // of a type that is not scanned
        {"30 0F 02 01 0A 02 0A 00 01 02 03 04 05 06 07 08 09", "10 0"},       // more than 64 bits
        {"30 08 02 01 04 02 03 00 00 01", "4 1"},
        {"30 0B 02 01 01 02 06 00 00 00 00 00 01", "1 0"},
        {"30 16 02 01 05 04 0F 00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE", "0 0"},
        {"30 14 02 01 05 04 0F 00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE", "5 0"},
        {"30 03 02 01 07", "7 0"},
    };
    for (const auto& [encoded, told] : cases) {
        CPolicyValue value = Number(OV_TYPE_QWORD, 77);
        DecodeValue(Bytes(FromHex(encoded)), value);
        EXPECT_EQ(Told(value), told) << encoded;
    }
    CPolicyValue value;
    EXPECT_THROW(DecodeValue(Bytes(FromHex("30 05 02 01 07 05 00")), value), _com_error) << "only a time complains";
    CPolicyItem item = {W("before"), Number(OV_TYPE_QWORD, 1)};
    CDecodeBudget budget;
    DecodeItem({}, item, budget);
    EXPECT_EQ(item.name, W(""));
    EXPECT_EQ(item.value.Type(), static_cast<DWORD>(OV_TYPE_NONE));
}

TEST(ValueEncoding, CountsAreBelievedUpToABound) {
    const auto lengthOf = [](const std::string& encoded) {
        CPolicyValue value;
        DecodeValue(Bytes(FromHex(encoded)), value);
        EXPECT_EQ(value.Type(), static_cast<DWORD>(OV_TYPE_ARRAY));
        return value.Elements().size();
    };
    EXPECT_EQ(lengthOf("30 0E 02 01 0B 02 01 03 30 06 02 01 04 02 01 01"), 3u);
    EXPECT_EQ(lengthOf("30 0E 02 01 0B 02 01 00 30 06 02 01 04 02 01 01"), 0u);
    EXPECT_EQ(lengthOf("30 10 02 01 0B 02 03 01 00 01 30 06 02 01 04 02 01 01"), 65'537u);
    EXPECT_EQ(lengthOf("30 10 02 01 0B 02 03 01 00 02 30 06 02 01 04 02 01 01"), 1u) << "damage";
    EXPECT_EQ(lengthOf("30 0A 02 01 0B 02 05 00 FF FF FF FF"), 0u);
    // All arrays of an item draw on one bound: two of 40,000 missing elements are one too many.
    CPolicyValue value;
    DecodeValue(
        Bytes(FromHex("30 1C 02 01 0B 02 01 02 30 09 02 01 0B 02 04 00 00 9C 40 30 09 02 01 0B 02 04 00 00 9C 40")),
        value);
    ASSERT_EQ(value.Elements().size(), 2u);
    EXPECT_EQ(value.Elements()[0].Elements().size(), 40'000u);
    EXPECT_EQ(value.Elements()[1].Elements().size(), 0u);
}

TEST(ValueEncoding, ArraysInArraysEndSomewhere) {
    std::string encoded = FromHex("30 06 02 01 04 02 01 01");
    for (int i = 0; i < 100'000; ++i) {
        encoded = Encoded([&](CDerWriter& writer) {
            writer.Bytes(Bytes(encoded));
            COVULongBlob::Write(writer, 1);
            COVULongBlob::Write(writer, OV_TYPE_ARRAY);
            writer.Close(DerTag::kSequence, 0);
        });
        if (i == 20) i = 99'000;
    }
    CPolicyValue value;
    DecodeValue(Bytes(encoded), value);
    int depth = 0;
    for (const CPolicyValue* at = &value; !at->Elements().empty(); at = &at->Elements()[0]) ++depth;
    EXPECT_EQ(depth, 8);
}

}  // namespace
