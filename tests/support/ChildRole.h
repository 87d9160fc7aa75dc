// A test program that is started again, to be another process in one of its own cases.
//
// What it does then is a role: `const CChildRole role("name", Body);` at namespace scope in the file of the case, which
// starts the program with "--role=name" and the role's arguments. TestMain plays the role in place of the tests.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

class CChildRole {
  public:
    using Body = int (*)(const std::vector<std::string>& arguments);

    CChildRole(const char* name, Body body) noexcept : m_name(name), m_body(body), m_next(First()) { First() = this; }

    // The role's exit code; nothing when the command line asks for no role.
    static std::optional<int> Play(int argc, char** argv) {
        constexpr std::string_view kAsk = "--role=";
        if (argc < 2 || !std::string_view(argv[1]).starts_with(kAsk)) return std::nullopt;
        const std::string_view name = std::string_view(argv[1]).substr(kAsk.size());
        for (const CChildRole* role = First(); role; role = role->m_next) {
            if (name == role->m_name) return role->m_body({argv + 2, argv + argc});
        }
        return 127;
    }

  private:
    static CChildRole*& First() noexcept {
        static CChildRole* first = nullptr;
        return first;
    }

    const char* m_name;
    Body m_body;
    CChildRole* m_next;
};
