// The insertion strings of audit events. A failure while they are made is a failure of the event, and of nothing else.
#pragma once

#include <iterator>

#include "Platform.h"
#include "diagnostics/Format.h"
#include "module/Library.h"

namespace OVLog {

// One insertion string.
class Parameter {
  public:
    virtual ~Parameter() = default;
    virtual wstr Value() const { return {}; }
};

inline constexpr char DecimalFormat[] = "%d";

// A value in a format that takes it.
template <class T, const char* Format>
class FormattedValue : public Parameter {
  public:
    explicit FormattedValue(T value) noexcept : m_value(value) {}
    wstr Value() const override {
        WCHAR text[1024];
        return wstr(text, OVFormat::Format(text, std::size(text), OVFormat::RuntimeFormat{Format}, m_value));
    }

  private:
    T m_value;
};

// The words for a failure code, as the suite has them, with the code: "Access is denied. (0x80070005)"; the code alone
// where it has none.
class GetErrorMessage : public Parameter {
  public:
    explicit GetErrorMessage(HRESULT hr);
    wstr Value() const override { return m_text; }

  private:
    wstr m_text;
};

// Domain and account of the caller of the current call; the computer's name and string 110 of the suite's texts where
// there is none. It has a string too many for Value; LogEvent takes both.
class InitiatedBy : public Parameter {
  public:
    InitiatedBy();
    const wstr& Domain() const noexcept { return m_domain; }
    const wstr& Account() const noexcept { return m_account; }

  private:
    bool TakeCaller();

    wstr m_domain;
    wstr m_account;
};

// The suite's texts: the file that ResourceDLL of SOFTWARE\Orvantis\EventLog names. Without it every text is empty.
class COVLogResource {
  public:
    COVLogResource() noexcept;
    virtual ~COVLogResource() = default;
    COVLogResource(const COVLogResource&) = delete;
    COVLogResource& operator=(const COVLogResource&) = delete;

    wstr _LoadOVString(DWORD id) const;

  private:
    CDLLLoader m_file;
};

}  // namespace OVLog
