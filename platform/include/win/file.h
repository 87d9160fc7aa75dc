// Files.
//
// Paths    either separator; the rest is a path of this system.
// Errors   by the last error.
// Locks    a file that is opened without sharing is that handle's alone: while it is open, whoever else opens it, here
// or
//          in another process, gets ERROR_SHARING_VIOLATION (32). Who goes round this layer is not kept out.
#pragma once

#include "win/types.h"

#define FILE_APPEND_DATA 0x4u
#define FILE_ALL_ACCESS 0x1F01FFu

#define FILE_SHARE_READ 1
#define FILE_SHARE_WRITE 2

#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5

#define FILE_ATTRIBUTE_READONLY 0x01u
#define FILE_ATTRIBUTE_HIDDEN 0x02u
#define FILE_ATTRIBUTE_DIRECTORY 0x10u
#define FILE_ATTRIBUTE_NORMAL 0x80u
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000u  // taken for granted
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu

#define ERROR_TOO_MANY_OPEN_FILES 4
#define ERROR_WRITE_PROTECT 19
#define ERROR_FILE_EXISTS 80
#define ERROR_INVALID_NAME 123
#define ERROR_NEGATIVE_SEEK 131
#define ERROR_FILENAME_EXCED_RANGE 206
#define ERROR_FILE_TOO_LARGE 223
#define ERROR_IO_DEVICE 1117
#define ERROR_INVALID_OWNER 1307
#define ERROR_CANT_RESOLVE_FILENAME 1921

// INVALID_HANDLE_VALUE on a failure. Served, without a template and with the attributes hidden and normal:
//
//   GENERIC_READ with or without GENERIC_WRITE, no sharing     OPEN_EXISTING; with both also OPEN_ALWAYS, and
//                                                              CREATE_ALWAYS and TRUNCATE_EXISTING, which cut the file
//   GENERIC_WRITE alone, no sharing                            CREATE_ALWAYS
//   GENERIC_READ, shared for reading and writing               OPEN_EXISTING
//   GENERIC_WRITE alone, shared for reading and writing        CREATE_ALWAYS and OPEN_ALWAYS
//   FILE_APPEND_DATA, shared for reading and writing           OPEN_ALWAYS: each WriteFile goes to the end
//
// A file that is cut keeps its owner, and by TRUNCATE_EXISTING its attributes. CREATE_ALWAYS over a hidden file that
// does not ask for a hidden one gives 5; success over a file that is there has the last error ERROR_ALREADY_EXISTS
// (183). What is no plain file gives 5, as does a symbolic link that neither root nor the user of this process put
// there; other links are followed, also to a file that is to be made. A file of a third's is not written to by those
// who share: 5.
//
// Of the security of a new file this system keeps an owner and a mode: the owner, who must be the user of this process
// or nobody named (else 1307), reads and writes if the access list lets that user; all others if it lets Everyone.
// Without a list the file is its owner's to write and everybody's to read.
//
// That a file is hidden is kept in an extended attribute, where the file system has them.
OVLAYER_API HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                      DWORD disposition, DWORD attributes, HANDLE templateFile);

// 0xFFFFFFFF on a failure, which is also the low word of some sizes; `high` may be null.
#define INVALID_FILE_SIZE 0xFFFFFFFFu
OVLAYER_API DWORD WINAPI GetFileSize(HANDLE file, DWORD* high);

// From the beginning (FILE_BEGIN) or the end (FILE_END). What is written after a move to the very end goes to the end,
// also when others have written there in between.
#define FILE_BEGIN 0
#define FILE_END 2
#define INVALID_SET_FILE_POINTER 0xFFFFFFFFu
OVLAYER_API DWORD WINAPI SetFilePointer(HANDLE file, LONG distance, LONG* high, DWORD from);

// At the end of the file success with fewer bytes. No overlapped calls: the last argument is null.
struct OVERLAPPED;
OVLAYER_API BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, DWORD* read, OVERLAPPED* overlapped);
// 112 for a full disk; what went in before stays.
OVLAYER_API BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, DWORD* written, OVERLAPPED* overlapped);
// To the disk.
OVLAYER_API BOOL WINAPI FlushFileBuffers(HANDLE file);

// For everybody to read; 183 for what is there, 3 when the folder above is missing. No security: null.
OVLAYER_API BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security);

// What CreateFileW would open: 32 while a handle is open on it, 2 when it is missing, 5 for a folder and for a file
// that cannot be written.
OVLAYER_API BOOL WINAPI DeleteFileW(LPCWSTR path);

OVLAYER_API DWORD WINAPI GetFileAttributesW(LPCWSTR path);
