// Registry values as the tool shows and reads them.
#pragma once

#include <string>
#include <vector>

#include "Platform.h"
#include "svinfo/Output.h"
#include "svinfo/RegFile.h"

// "REG_SZ", or the number as "0x12345" for a type without a name.
std::string RegTypeText(DWORD type);

// The type of TYPE on the command line, in any case. Wrong usage for a name that is none, or none that can be given.
DWORD RegTypeArgument(const std::string& argument);

// DATA of the command line as bytes of that type: text, a number in decimal or with 0x, hexadecimal digits, or texts
// with \0 between them. Wrong usage for what the type cannot hold.
std::vector<BYTE> RegDataArgument(DWORD type, const std::string& argument);

// Text as it is, numbers in decimal (REG_QWORD: 0x and 16 digits), lists with \0 between their texts, and hexadecimal
// digits for everything else, damaged texts and numbers of a wrong size included.
std::string RegDataText(const CRegEntry& entry);

// { "name", "type", "form": "text|number|mask|list|bytes", "data" }: the form says how `data` is to be read.
json RegEntryJson(const CRegEntry& entry);
