// A subscriber that writes down what it hears, one line an item: "Name: old -> new".
#pragma once

#include <orvantis/ServerInfo.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/ValueText.h"

class CRecorder : public IOVInfoChangeCallback {
  public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        *object = iid == IID_IUnknown || iid == IID_IOVInfoChangeCallback ? this : nullptr;
        if (*object) AddRef();
        return *object ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++references; }
    STDMETHODIMP_(ULONG) Release() override { return --references; }

    STDMETHODIMP OnInfoChanged(DWORD count, const OV_SERVER_INFO_EX* before, const OV_SERVER_INFO_EX* now) override {
        {
            const std::lock_guard lock(m_mutex);
            ++m_batches;
            for (DWORD i = 0; i < count; ++i) m_lines.push_back(Line(before[i], now[i]));
        }
        return then ? then() : S_OK;
    }

    // What was heard since the last time, and how many calls there were in all.
    std::vector<std::string> Take() {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_lines, {});
    }
    int Batches() {
        const std::lock_guard lock(m_mutex);
        return m_batches;
    }

    std::function<HRESULT()> then;  // runs behind each record taken, and answers the call
    std::atomic<ULONG> references{1};

  private:
    static std::string Line(const OV_SERVER_INFO_EX& before, const OV_SERVER_INFO_EX& now) {
        std::string name;
        for (LPCWSTR unit = now.name; *unit; ++unit) name += *unit < 0x80 ? static_cast<char>(*unit) : '?';
        if (wstr(before.name) != now.name) name += " (other name)";
        const auto text = [](const OV_SERVER_INFO_EX& record) {
            return record.hr < 0 ? std::string(record.hr == static_cast<HRESULT>(0x80070032) ? "nothing" : "gone")
                                 : ValueText(record.value) + (record.hr == S_FALSE ? " local" : "");
        };
        return name + ": " + text(before) + " -> " + text(now);
    }

    std::mutex m_mutex;
    int m_batches = 0;
    std::vector<std::string> m_lines;
};
