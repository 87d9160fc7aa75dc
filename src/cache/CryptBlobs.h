// What values become in the file: one class for each kind of element, which writes it and reads it back.
//
//   class           element           content
//   COVAnyBlob      OCTET STRING      the bytes
//   COVGUIDBlob     OCTET STRING      16 bytes, each field with its upper byte first
//   COVIntBlob      INTEGER           a signed number, as short as it goes
//   COVULongBlob    INTEGER           an unsigned one, with a byte of 0 in front where its top bit is set
//   COVWStrBlob     BMPString         the text with its NUL; nothing at all for no text
//   COVDoubleBlob   IA5String         the number as text, with a NUL
//   CTimeBlob       UTCTime, through 2049, or GeneralizedTime: in whole seconds (RFC 5280, 4.1.2.5)
//
// Reading is as tolerant as the files in the field want it: what cannot be decoded leaves `out` as it was, and only
// CTimeBlob raises.
#pragma once

#include "cache/Der.h"

struct COVAnyBlob {
    static void Write(CDerWriter& writer, CDerBytes bytes);
    static bool Read(CDerBytes element, CDerBytes& out) noexcept;  // `out` points into the element
};

struct COVGUIDBlob {
    static void Write(CDerWriter& writer, const GUID& id);
    // Of any other length than 16 the GUID of zeros.
    static bool Read(CDerBytes element, GUID& out) noexcept;
};

struct COVIntBlob {
    static void Write(CDerWriter& writer, LONG number);
    // The bytes as they stand, in a number that begins as 0: the sign of a short one is not carried on. More than four
    // bytes are 0.
    static bool Read(CDerBytes element, LONG& out) noexcept;
};

struct COVULongBlob {
    static void Write(CDerWriter& writer, ULONGLONG number);
    // A number of up to `room` bytes; anything longer is 0.
    static bool Read(CDerBytes element, ULONGLONG& out, std::size_t room) noexcept;
};

// The string types, by the numbers that the platform gives them. Others are refused.
enum class NameValueType : DWORD {
    kNone = 0,
    kEncoded = 1,
    kOctets = 2,
    kNumeric = 3,
    kPrintable = 4,
    kTeletex = 5,
    kVideotex = 6,
    kIA5 = 7,
    kGraphic = 8,
    kVisible = 9,
    kGeneral = 10,
    kBmp = 12,
    kUtf8 = 13,
};
struct CNameValue {
    NameValueType type = NameValueType::kNone;
    CDerBytes content;
};
bool ReadNameValue(CDerBytes element, CNameValue& out) noexcept;

struct COVWStrBlob {
    static void Write(CDerWriter& writer, const WCHAR* text, std::size_t length);  // null for no text
    // Of any string type but octets, up to its first NUL.
    static bool Read(CDerBytes element, wstr& out);
};

struct COVDoubleBlob {
    static void Write(CDerWriter& writer, double number);
    static bool Read(CDerBytes element, double& out);
};

struct CTimeBlob {
    // Raises 0x80070057 for what is no time, or none with a year of four digits.
    static void Write(CDerWriter& writer, const FILETIME& time);
    // Raises 0x80070057 for a date or an hour that does not exist, else 0x80093103.
    static void Read(CDerBytes element, FILETIME& out);
};
