// How a command fails: an exit code that scripts depend on, and a line that says what happened.
#pragma once

#include <string>
#include <system_error>

#include "Platform.h"

enum class ExitCode : int {
    Ok = 0,        // yes, found, same, done
    No = 1,        // no, absent, different, findings
    Usage = 2,     // wrong usage
    Denied = 3,    // access denied
    BadInput = 4,  // an input file is bad; nothing was changed
    Failed = 5,    // the component or a source failed
    Hidden = 6,    // written, but a stronger source hides it
};

// Thrown by whatever ends a command. The line is complete, UTF-8, without a line end.
class CCommandFailure {
  public:
    CCommandFailure(ExitCode code, std::string line) : m_code(code), m_line(std::move(line)) {}
    ExitCode Code() const noexcept { return m_code; }
    const std::string& Line() const noexcept { return m_line; }

  private:
    ExitCode m_code;
    std::string m_line;
};

// "0x80070005 access is denied"
std::string ResultText(HRESULT hr);

// The result that stands for an error of the C++ library's.
HRESULT ResultOfError(const std::error_code& error);

// The exit code that a failed call gives: 3 for a refusal, 1 for what is not there, 5 for all else.
ExitCode ExitCodeOf(HRESULT hr) noexcept;

// "OPERATION: 0x80070005 access is denied", with the exit code that goes with it.
CCommandFailure FailureOf(const std::string& operation, HRESULT hr);
CCommandFailure RegistryFailureOf(const std::string& operation, LSTATUS error);
