#include "HiveError.h"

#include <sqlite3.h>

#include <cerrno>

DWORD HiveErrorFromErrno(int error) noexcept {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS:
            return ERROR_ACCESS_DENIED;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return ERROR_DISK_FULL;
        case ENOMEM:
            return ERROR_OUTOFMEMORY;
        case ENAMETOOLONG:
        case ELOOP:
        case EINVAL:
            return ERROR_BAD_PATHNAME;
        case EMFILE:
        case ENFILE:
            return ERROR_CANTOPEN;
        case EBUSY:
        case EAGAIN:
        case ETIMEDOUT:
            return ERROR_BUSY;
        default:
            return ERROR_REGISTRY_IO_FAILED;
    }
}

DWORD HiveErrorFromSqlite(int code, int systemError) noexcept {
    switch (code & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return ERROR_SUCCESS;
        case SQLITE_PERM:
        case SQLITE_AUTH:
        case SQLITE_READONLY:
            return ERROR_ACCESS_DENIED;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
            return ERROR_BUSY;
        case SQLITE_NOMEM:
            return ERROR_OUTOFMEMORY;
        case SQLITE_FULL:
            return ERROR_DISK_FULL;
        case SQLITE_TOOBIG:
            return ERROR_INVALID_PARAMETER;
        case SQLITE_NOTADB:
            return ERROR_BADDB;
        case SQLITE_CORRUPT:
        case SQLITE_FORMAT:
        // A table that is not there, or holds what it may not: somebody else's hand was in the file.
        case SQLITE_ERROR:
        case SQLITE_CONSTRAINT:
        case SQLITE_MISMATCH:
        case SQLITE_SCHEMA:
            return ERROR_REGISTRY_CORRUPT;
        case SQLITE_CANTOPEN:
        case SQLITE_IOERR: {
            if (code == SQLITE_IOERR_NOMEM) return ERROR_OUTOFMEMORY;
            if (code == SQLITE_IOERR_CORRUPTFS) return ERROR_REGISTRY_CORRUPT;
            const DWORD error = systemError ? HiveErrorFromErrno(systemError) : ERROR_REGISTRY_IO_FAILED;
            const bool opening = (code & 0xFF) == SQLITE_CANTOPEN;
            return opening && error == ERROR_REGISTRY_IO_FAILED ? static_cast<DWORD>(ERROR_CANTOPEN) : error;
        }
        default:
            return ERROR_GEN_FAILURE;
    }
}
