#include "svinfo/Failure.h"

#include <cstdio>

#include "suite/FailureWords.h"

namespace {

const char* WordsOf(HRESULT hr) noexcept {
    const char* const words = FailureWords(hr);
    return words ? words : FAILED(hr) ? "an unknown failure" : "success";
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
