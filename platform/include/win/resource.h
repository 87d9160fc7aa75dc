// String tables: files that are loaded as data, and the blocks of strings in them.
//
// Form      UTF-8 text, one string a line: its number, blanks, the text. A line that begins with # is a comment, an
//           empty one is nothing. Of a number that comes twice the last line counts.
// Blocks    as the platform has them: block (number / 16) + 1 holds 16 strings in a row, each a 16-bit length and that
//           many units.
#pragma once

#include "win/types.h"

#define LOAD_LIBRARY_AS_DATAFILE 0x00000002u
#define ERROR_RESOURCE_DATA_NOT_FOUND 1812
#define ERROR_RESOURCE_TYPE_NOT_FOUND 1813
#define ERROR_RESOURCE_NAME_NOT_FOUND 1815

// LOAD_LIBRARY_AS_DATAFILE alone: no code of the file runs. Looked for as LoadLibraryW does: a bare name beside the
// program and beside the layer, never in the current folder. 126 for a file that is missing or cannot be read, 193 for
// one that is no string table or larger than 16 MiB. FreeLibrary ends it.
OVLAYER_API HMODULE WINAPI LoadLibraryExW(LPCWSTR path, HANDLE file, DWORD flags);

struct HRSRC__;
using HRSRC = HRSRC__*;
using HGLOBAL = void*;
#define MAKEINTRESOURCEW(number) (reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(number))))
#define RT_STRING MAKEINTRESOURCEW(6)

// Blocks of strings (RT_STRING) alone, by their numbers. 1813 for a module that is no such file, the program among
// them, 1815 for a block that the file does not have.
OVLAYER_API HRSRC WINAPI FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type);
// The block's bytes, as long as the file is loaded.
OVLAYER_API HGLOBAL WINAPI LoadResource(HMODULE module, HRSRC resource);
OVLAYER_API LPVOID WINAPI LockResource(HGLOBAL resource);
OVLAYER_API DWORD WINAPI SizeofResource(HMODULE module, HRSRC resource);
