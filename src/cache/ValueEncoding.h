// Items and their values as the cache file holds them.
//
//   item    SEQUENCE { name BMPString, value }
//   value   SEQUENCE { type INTEGER, content }
//
//   type        content
//   1           the signed number: INTEGER
//   2           the text: BMPString
//   3, 4        the lower 32 bits: INTEGER
//   5           the GUID: OCTET STRING
//   6           the double: IA5String
//   7           the time: UTCTime or GeneralizedTime
//   8           the bytes: OCTET STRING
//   9, 10       the 64 bits: INTEGER
//   11          the count: INTEGER, then each element as a value of its own
//   others      none
#pragma once

#include "cache/Der.h"
#include "store/PolicyValue.h"

// Encoding raises 0x8007000E for want of memory, and 0x80070057 for a value of type 7 that is no time.
// The element goes in front of what `out` holds.
void EncodeValue(const CPolicyValue& value, CDerWriter& out);
void EncodeItem(const CPolicyItem& item, CDerWriter& out);

// Decoding is tolerant: what cannot be decoded is 0 or empty, and bytes that are no encoding at all give a value of
// type 0. What it raises is a failed time's 0x80070057 or 0x80093103, or the want of memory.
//
// An array has as many elements as its count says: the missing ones are of type 0, as many as the budget still has. A
// count beyond that is damage, and the array is as long as what is there. Arrays within arrays are followed eight deep;
// what is deeper is of type 0.
struct CDecodeBudget {
    DWORD missing = 65'536;
};
void DecodeValue(CDerBytes encoded, CPolicyValue& value);
// `budget` may be that of several items, so that what many of them cost together has a bound.
void DecodeItem(CDerBytes encoded, CPolicyItem& item, CDecodeBudget& budget);
