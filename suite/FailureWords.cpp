#include "suite/FailureWords.h"

namespace {

struct KnownResult {
    HRESULT hr;
    const char* words;
};

const KnownResult kKnownResults[] = {
    {S_OK, "success"},
    {S_FALSE, "success, with less than was asked"},
    {HRESULT_FROM_WIN32(ERROR_INVALID_FUNCTION), "the function is not served"},
    {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), "it does not exist"},
    {HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND), "its folder does not exist"},
    {E_ACCESSDENIED, "access is denied"},
    {HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE), "the handle is invalid"},
    {HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY), "not enough memory"},
    {HRESULT_FROM_WIN32(ERROR_INVALID_DATA), "the data is of a wrong type or damaged"},
    {E_OUTOFMEMORY, "out of memory"},
    {HRESULT_FROM_WIN32(ERROR_WRITE_FAULT), "it cannot be written"},
    {HRESULT_FROM_WIN32(ERROR_GEN_FAILURE), "the system failed"},
    {HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION), "another process is using it"},
    {HRESULT_FROM_WIN32(ERROR_NOT_SUPPORTED), "it is not supported"},
    {E_INVALIDARG, "a parameter is wrong"},
    {HRESULT_FROM_WIN32(ERROR_DISK_FULL), "the disk is full"},
    {HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), "the module was not found"},
    {HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), "the module lacks the export"},
    {HRESULT_FROM_WIN32(ERROR_BAD_PATHNAME), "the path is invalid"},
    {HRESULT_FROM_WIN32(ERROR_BUSY), "it is busy"},
    {HRESULT_FROM_WIN32(ERROR_DIRECTORY), "it is a folder"},
    {HRESULT_FROM_WIN32(ERROR_MORE_DATA), "there is more data than fits"},
    {HRESULT_FROM_WIN32(ERROR_BADDB), "the registry is damaged"},
    {HRESULT_FROM_WIN32(ERROR_CANTOPEN), "the registry cannot be opened"},
    {HRESULT_FROM_WIN32(ERROR_CANTREAD), "the registry cannot be read"},
    {HRESULT_FROM_WIN32(ERROR_CANTWRITE), "the registry cannot be written"},
    {HRESULT_FROM_WIN32(ERROR_REGISTRY_CORRUPT), "the registry is damaged"},
    {HRESULT_FROM_WIN32(ERROR_REGISTRY_IO_FAILED), "the registry's file failed"},
    {HRESULT_FROM_WIN32(ERROR_KEY_DELETED), "the key was deleted meanwhile"},
    {HRESULT_FROM_WIN32(ERROR_NO_TOKEN), "there is no caller"},
    {static_cast<HRESULT>(0x80070525u), "there is no such user"},
    {HRESULT_FROM_WIN32(ERROR_NONE_MAPPED), "no account has that name or identifier"},
    {HRESULT_FROM_WIN32(ERROR_INVALID_SID), "it is no security identifier"},
    {HRESULT_FROM_WIN32(NERR_UserNotFound), "this computer has no such account"},
    {E_NOTIMPL, "it is not served"},
    {static_cast<HRESULT>(0x80090006u), "the digest is wrong"},
    {static_cast<HRESULT>(0x80093103u), "the encoding is damaged"},
    {HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE), "the file is too large"},
    {E_NOINTERFACE, "the interface is not served"},
    {E_POINTER, "a pointer is missing"},
    {E_FAIL, "it failed"},
    {E_UNEXPECTED, "an unexpected failure"},
    {CLASS_E_CLASSNOTAVAILABLE, "the module does not serve the class"},
    {REGDB_E_CLASSNOTREG, "the class is not registered"},
};

}  // namespace

const char* FailureWords(HRESULT hr) noexcept {
    for (const KnownResult& known : kKnownResults) {
        if (known.hr == hr) return known.words;
    }
    return nullptr;
}
