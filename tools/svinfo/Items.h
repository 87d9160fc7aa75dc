// Items as the component answers them, in the forms in which the tool shows them.
#pragma once

#include <string>
#include <vector>

#include "Platform.h"
#include "orvantis/ServerInfo.h"
#include "svinfo/Output.h"

enum class ItemState { Managed, Local, Absent, Error };

// One question and its answer. Owns what the answer holds.
class CItem {
  public:
    explicit CItem(wstr name) : m_name(std::move(name)) {}
    CItem(CItem&& other) noexcept;
    CItem& operator=(CItem&& other) noexcept;
    ~CItem();

    const wstr& Name() const noexcept { return m_name; }
    HRESULT Result() const noexcept { return m_result; }
    ItemState State() const noexcept;

    // "string", "dword", "qword", "array", or "null" for no value.
    const char* TypeName() const noexcept;
    // One for each line of text: a value has one, an array as many as it has elements.
    std::vector<std::string> Lines() const;
    json Json() const;

    // Takes over an answered record.
    void Take(const OV_SERVER_INFO_EX& record) noexcept;
    // Takes a copy of a value, as the record of that result has it.
    void Copy(const OV_SERVER_VALUE& value, HRESULT result);

  private:
    wstr m_name;
    HRESULT m_result = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    OV_SERVER_VALUE m_value = {};
};

const char* StateName(ItemState state) noexcept;
Tone ToneOf(ItemState state) noexcept;

// Asks for all items in one call. `request` is OV_QUERY or OV_QUERY_DEFAULT. Throws CCommandFailure when the whole call
// failed; what became of each item stands in it.
std::vector<CItem> AskItems(IOVServerInfo& info, const std::vector<wstr>& names, HRESULT request);

// A name of the command line: A/B/C means A\B\C where the whole name has no backslash.
wstr ItemNameArgument(const std::string& argument);

// The item, as the objects of "items" in JSON answers.
json ItemJson(const CItem& item);

// "0x" is not part of it: 16 upper-case hexadecimal digits.
std::string MaskDigits(ULONGLONG mask);
