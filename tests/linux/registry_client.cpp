// The role of CClient.
#include <grp.h>
#include <unistd.h>

#include <iostream>
#include <sstream>
#include <string>

#include "Platform.h"
#include "module/RegistryKey.h"
#include "support/ChildRole.h"
#include "userenv.h"

namespace {

wstr Wide(const std::string& text) {
    return {text.begin(), text.end()};
}

// "HKLM\A\B": the predefined key, and what is left of the path.
HKEY Split(std::string& path) {
    const std::string root = path.substr(0, path.find('\\'));
    if (root.starts_with("S-1-") || root.starts_with("s-1-")) return HKEY_USERS;
    path.erase(0, std::min(path.size(), root.size() + 1));
    return root == "HKCU" ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

std::string Get(const CRegistryKey& key, const std::string& name) {
    DWORD number = 0;
    if (const LONG error = key.QueryDword(Wide(name).c_str(), number)) return std::to_string(error);
    return "0 " + std::to_string(number);
}

class CClientRole {
  public:
    std::string Answer(const std::string& question) {
        std::istringstream words(question);
        std::string verb, path, name;
        DWORD number = 0;
        words >> verb;
        if (verb == "begin") return std::to_string(OvBeginRegistryBatch());
        if (verb == "commit") return std::to_string(OvEndRegistryBatch(TRUE));
        if (verb == "rollback") return std::to_string(OvEndRegistryBatch(FALSE));
        if (verb == "signal") return std::to_string(RefreshPolicyEx(TRUE, 0));
        if (verb == "section") return EnterCriticalPolicySection(TRUE) ? "1" : "0";
        if (verb == "held") {
            words >> name;
            return Get(m_held, name);
        }
        words >> path >> name >> number;
        const HKEY root = Split(path);
        CRegistryKey key;
        if (verb == "get") {
            const LONG error = key.Open(root, Wide(path).c_str(), KEY_READ);
            return error ? std::to_string(error) : Get(key, name);
        }
        if (verb == "hold") return std::to_string(m_held.Open(root, Wide(path).c_str(), KEY_READ));
        const LONG error = key.Create(root, Wide(path).c_str(), nullptr, 0, KEY_READ | KEY_WRITE, nullptr, nullptr);
        if (error || verb == "create") return std::to_string(error);
        return std::to_string(key.SetDword(Wide(name).c_str(), number));
    }

  private:
    CRegistryKey m_held;
};

int PlayClient(const std::vector<std::string>& arguments) {
    const auto user = static_cast<uid_t>(std::stoul(arguments.at(1)));
    if (user != geteuid() && (setgroups(0, nullptr) || setgid(user) || setuid(user))) return 2;
    if (OvSetRoot(arguments.at(0).c_str())) return 3;
    CClientRole role;
    for (std::string question; std::getline(std::cin, question);) {
        std::cout << role.Answer(question) << std::endl;
    }
    return 0;
}

const CChildRole clientRole("registry-client", PlayClient);

}  // namespace
