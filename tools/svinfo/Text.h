// Text at the tool's edge: UTF-8 outside, 16-bit units inside, and what a terminal may be shown.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform.h"

// Nothing when the bytes are no UTF-8; `badOffset`, if given, is then the offset of the first byte that is none.
std::optional<wstr> FromUtf8(std::string_view bytes, std::size_t* badOffset = nullptr);

// An argument of the command line. Wrong usage, with `what` naming the argument, when it is no UTF-8.
wstr WideArgument(const std::string& argument, const char* what);

// A surrogate without its partner becomes U+FFFD, so that the result is always UTF-8.
std::string ToUtf8(wstr_view text);

// Code page 1252; each byte is one unit.
wstr FromCodePage1252(std::string_view bytes);

// `text` with whatever would steer a terminal or break a line written out: \t, \n, \r, \x1B, \u202E. Bytes that are no
// UTF-8 appear as \xNN.
std::string EscapeControls(std::string_view text);

// "'text'", escaped, and cut when it is long: for messages.
std::string Quoted(wstr_view text);
std::string Quoted(std::string_view text);

// How many columns the text takes on a terminal.
std::size_t ColumnCount(std::string_view utf8) noexcept;
// How many characters it has, one for each code point: for messages.
std::size_t CharacterCount(std::string_view utf8) noexcept;
std::size_t CharacterCount(wstr_view text) noexcept;

// The number of a hexadecimal digit; -1 for another character.
int HexDigit(WCHAR unit) noexcept;

// Bytes as two hexadecimal digits each, lower case.
std::string HexText(const BYTE* data, std::size_t size);

// "1 key", "2 keys"
std::string CountText(std::size_t count, const char* one, const char* many);

// "HKEY_LOCAL_MACHINE\\KEY"
std::string MachineKeyText(wstr_view key);

// "FILE:LINE:COLUMN: ", where a message about a file begins.
std::string FilePosition(const std::string& file, std::size_t line, std::size_t column);

// "2026-11-23 14:05:09.120"
std::string TimeText(const SYSTEMTIME& time);
