// Other programs, on this home: tests/support/RunProgram.h.
#include "support/RunProgram.h"

#include <gtest/gtest.h>

#include <cwchar>

#include "Platform.h"

namespace {

std::wstring Wide(const std::string& text) {
    if (text.empty()) return {};
    const int length = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, wide.data(), length);
    EXPECT_GT(units, 0) << text << " is no UTF-8";
    wide.resize(static_cast<std::size_t>(units));
    return wide;
}

// A file that is gone when it is closed, for what a program writes: a pipe would have to be emptied while it runs.
class CCapture {
  public:
    CCapture() {
        wchar_t folder[MAX_PATH + 1];
        wchar_t name[MAX_PATH + 1];
        EXPECT_NE(GetTempPathW(MAX_PATH + 1, folder), 0u);
        EXPECT_NE(GetTempFileNameW(folder, L"ovr", 0, name), 0u);
        SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
        m_file = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             &inherited, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        EXPECT_NE(m_file, INVALID_HANDLE_VALUE) << GetLastError();
    }
    ~CCapture() { CloseHandle(m_file); }
    CCapture(const CCapture&) = delete;
    CCapture& operator=(const CCapture&) = delete;

    HANDLE Handle() const { return m_file; }
    std::string Text() const {
        std::string text;
        char block[4096];
        DWORD got = 0;
        SetFilePointer(m_file, 0, nullptr, FILE_BEGIN);
        while (ReadFile(m_file, block, sizeof block, &got, nullptr) && got != 0) text.append(block, got);
        return text;
    }

  private:
    HANDLE m_file;
};

// One argument as the C library's start-up code takes it apart again: backslashes count double before a quotation mark.
std::wstring Quoted(const std::wstring& argument) {
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t unit : argument) {
        if (unit == L'"') quoted.append(backslashes + 1, L'\\');
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        quoted += unit;
    }
    return quoted.append(backslashes, L'\\') + L'"';
}

// This process's variables with those that are added, each with its NUL, then a closing one.
std::wstring Environment(const std::vector<std::pair<std::string, std::string>>& added) {
    std::wstring all;
    wchar_t* mine = GetEnvironmentStringsW();
    for (const wchar_t* entry = mine; *entry; entry += std::wcslen(entry) + 1) {
        bool replaced = false;
        for (const auto& [name, value] : added) {
            const std::wstring start = Wide(name) + L'=';
            replaced = replaced || _wcsnicmp(entry, start.c_str(), start.size()) == 0;
        }
        if (!replaced) all.append(entry).append(1, L'\0');
    }
    FreeEnvironmentStringsW(mine);
    for (const auto& [name, value] : added) all.append(Wide(name) + L'=' + Wide(value)).append(1, L'\0');
    return all.append(1, L'\0');
}

}  // namespace

CRunResult RunProgram(const std::vector<std::string>& command,
                      const std::vector<std::pair<std::string, std::string>>& environment) {
    CRunResult result;
    const CCapture output;
    const CCapture errors;
    std::wstring line;
    for (const std::string& argument : command) line += (line.empty() ? L"" : L" ") + Quoted(Wide(argument));
    std::wstring variables = Environment(environment);
    STARTUPINFOW start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = nullptr;
    start.hStdOutput = output.Handle();
    start.hStdError = errors.Handle();
    PROCESS_INFORMATION process = {};
    // Once in a thousand times Wine fails to start a program for a reason of its own, and says so.
    BOOL started = FALSE;
    for (int attempt = 0; !started && (attempt == 0 || (attempt < 3 && GetLastError() == ERROR_INTERNAL_ERROR));
         ++attempt) {
        started = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT,
                                 variables.data(), nullptr, &start, &process);
    }
    if (!started) {
        ADD_FAILURE() << command.at(0) << ": error " << GetLastError();
        return result;
    }
    DWORD code = 0;
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    result.exitCode = static_cast<int>(code);
    result.output = output.Text();
    result.errors = errors.Text();
    return result;
}

// A program under another account would need that account's password.
std::vector<std::string> WithoutRights() {
    return {};
}
