// Other processes: this program again, in a role.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class CProcess {
  public:
    CProcess(const std::string& role, const std::vector<std::string>& arguments);
    // Ends its input and waits for it.
    ~CProcess();
    CProcess(const CProcess&) = delete;
    CProcess& operator=(const CProcess&) = delete;

    // One line to its input, and one from its output; "gone" when it does not answer any more.
    std::string Ask(const std::string& question);
    void Tell(const std::string& question);
    std::string Hear();
    void Kill();
    // Its exit code, 128 and the signal's number for one that was ended by a signal.
    int Wait();

  private:
    pid_t m_process = -1;
    int m_input = -1;
    int m_output = -1;
};

// A process that reads and writes the registry of a root, and signals its policy, when it is told to, as user `user`.
//
//     get KEY NAME            0 and the number, or the error
//     set KEY NAME NUMBER     the error, 0 for none; the key is made
//     create KEY              the error
//     hold KEY                the error; the key stays open
//     held NAME               like get, from the key that is held
//     begin, commit, rollback the error
//     signal                  1 when the policy of the machine was signalled
//     section                 1 when the machine's policy section is held, until the process ends
//
// KEY begins with HKLM or HKCU, or a SID for HKEY_USERS.
class CClient : public CProcess {
  public:
    explicit CClient(const std::string& root, uid_t user = 0)
        : CProcess("registry-client", {root, std::to_string(user)}) {}
};
