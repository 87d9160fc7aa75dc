// Registration entries: the text files that registry editors write and read.
//
// Shape    a header line, then key lines in brackets, each with the value lines that belong to it. The reader takes
//          what the field's tools take, and what they skip in silence it notes with its place and skips as well.
// Text     UTF-16 with its mark, UTF-8 with or without one, and code page 1252 under the headers of version 4 and
//          below.
// Fails    a file that is none (header, encoding) raises CBadRegFile and gives nothing.
// Threads  pure functions of their arguments.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform.h"
#include "svinfo/RegPath.h"

// One value: to be set, or to be deleted.
struct CRegEntry {
    wstr name;  // empty for the key's default value
    bool remove = false;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;  // as the registry keeps it: little-endian, text in 16-bit units
};

// One key: to be created with its values, or to be deleted with all below it (then without values).
struct CRegBlock {
    CRegPath key;
    bool remove = false;
    std::size_t line = 0;  // where the file names it; 0 when no file does
    std::vector<CRegEntry> entries;
};

// A line that was skipped. Lines and columns count from 1, columns in characters.
struct CRegNote {
    std::size_t line;
    std::size_t column;
    std::string text;
};

struct CRegFile {
    std::vector<CRegBlock> blocks;  // in the file's order, which is the order to carry them out
    std::vector<CRegNote> skipped;
};

struct CBadRegFile {
    std::size_t line;
    std::size_t column;
    std::string text;
};

CRegFile ReadRegFile(std::string_view bytes);

// The whole file, version 5, UTF-16 with its mark. Blocks and values stand in the order given.
// Throws CCommandFailure for a key whose name has a line break: the format cannot carry it.
std::string WriteRegFile(const std::vector<CRegBlock>& blocks);
