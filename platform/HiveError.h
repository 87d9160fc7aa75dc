// The one place where failures beneath the registry become the errors of its calls.
#pragma once

#include "win/types.h"

// Of a call to the system, from errno. A missing folder is ERROR_PATH_NOT_FOUND (3), a refusal 5, a full disk 112.
DWORD HiveErrorFromErrno(int error) noexcept;

// Of SQLite: `code` is an extended result code, `systemError` the errno behind it, 0 where there is none. A hive that
// somebody else keeps locked is ERROR_BUSY (170), damage 1015, a file that is no database 1009.
DWORD HiveErrorFromSqlite(int code, int systemError) noexcept;
