// The registry verbs on a key of the test's own.
#pragma once

#include "cli_fixture.h"
#include "regfile_text.h"

inline const std::string kKey = "HKLM\\SOFTWARE\\T";
inline const std::string kLongKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\T";

class CliRegTest : public CliTest {
  protected:
    CRunResult Import(const std::string& body) { return Run({"reg", "import", Write("f.reg", kHeader + body)}); }

    // Everything below the key, one key after the other, as short text.
    std::string Tree(const std::string& key = "HKLM\\SOFTWARE") {
        const CRunResult result = Run({"reg", "export", key});
        return result.exitCode == 0 ? regtext::ReadText(result.output) : "exit " + std::to_string(result.exitCode);
    }
};
