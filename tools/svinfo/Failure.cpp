#include "svinfo/Failure.h"

#include <cstdio>

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
    {E_NOTIMPL, "it is not served yet"},
    {E_NOINTERFACE, "the interface is not served"},
    {E_POINTER, "a pointer is missing"},
    {E_FAIL, "it failed"},
    {E_UNEXPECTED, "an unexpected failure"},
    {CLASS_E_CLASSNOTAVAILABLE, "the module does not serve the class"},
    {REGDB_E_CLASSNOTREG, "the class is not registered"},
};

const char* WordsOf(HRESULT hr) {
    for (const KnownResult& known : kKnownResults) {
        if (known.hr == hr) return known.words;
    }
    return FAILED(hr) ? "an unknown failure" : "success";
}

}  // namespace

std::string ResultText(HRESULT hr) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X ", static_cast<unsigned>(hr));
    return std::string(code) + WordsOf(hr);
}

HRESULT ResultOfError(const std::error_code& error) {
    const struct {
        std::errc condition;
        DWORD result;
    } kKnown[] = {
        {std::errc::permission_denied, ERROR_ACCESS_DENIED},
        {std::errc::operation_not_permitted, ERROR_ACCESS_DENIED},
        {std::errc::read_only_file_system, ERROR_ACCESS_DENIED},
        {std::errc::no_such_file_or_directory, ERROR_FILE_NOT_FOUND},
        {std::errc::not_a_directory, ERROR_PATH_NOT_FOUND},
        {std::errc::is_a_directory, ERROR_DIRECTORY},
        {std::errc::no_space_on_device, ERROR_DISK_FULL},
        {std::errc::io_error, ERROR_WRITE_FAULT},
        {std::errc::not_enough_memory, ERROR_NOT_ENOUGH_MEMORY},
    };
    for (const auto& known : kKnown) {
        if (error == known.condition) return HRESULT_FROM_WIN32(known.result);
    }
    return HRESULT_FROM_WIN32(ERROR_GEN_FAILURE);
}

ExitCode ExitCodeOf(HRESULT hr) noexcept {
    if (hr == E_ACCESSDENIED) return ExitCode::Denied;
    if (hr == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)) return ExitCode::No;
    return ExitCode::Failed;
}

CCommandFailure FailureOf(const std::string& operation, HRESULT hr) {
    return CCommandFailure(ExitCodeOf(hr), operation + ": " + ResultText(hr));
}

CCommandFailure RegistryFailureOf(const std::string& operation, LSTATUS error) {
    return FailureOf(operation, HRESULT_FROM_WIN32(static_cast<DWORD>(error)));
}
