// Registry.pol, the file in which a policy object keeps its registry settings.
//
// Shape    "PReg", the version 1, then records of key, value name, type and data to the end of the file, to be carried
//          out in that order. A value name that begins with two asterisks is an instruction.
// Source   [MS-GPREG], "Registry Policy File Format".
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform.h"

struct CPolRecord {
    wstr key;  // without a root
    wstr name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
    std::size_t offset = 0;  // of its first byte in the file
};

// Damage: where, what was found and what was expected. What stands before it is sound, but a policy is applied whole.
struct CBadPolFile {
    std::size_t offset;
    std::string text;
};

// Throws CBadPolFile.
std::vector<CPolRecord> ReadPolFile(std::string_view bytes);

// The file that holds these records.
std::string WritePolFile(const std::vector<CPolRecord>& records);
