#include "support/RunProgram.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

// A file without a name, for what a program writes: a pipe would have to be emptied while the program runs.
class CCapture {
  public:
    CCapture() {
        char name[] = "/tmp/ovrun-XXXXXX";
        m_file = mkstemp(name);
        EXPECT_GE(m_file, 0) << std::strerror(errno);
        unlink(name);
    }
    ~CCapture() { close(m_file); }
    CCapture(const CCapture&) = delete;
    CCapture& operator=(const CCapture&) = delete;

    int Handle() const { return m_file; }
    std::string Text() const {
        std::string text;
        char block[4096];
        lseek(m_file, 0, SEEK_SET);
        for (ssize_t got; (got = read(m_file, block, sizeof block)) > 0;) text.append(block, static_cast<size_t>(got));
        return text;
    }

  private:
    int m_file;
};

std::vector<std::string> Environment(const std::vector<std::pair<std::string, std::string>>& added) {
    std::vector<std::string> all;
    for (char** entry = environ; *entry; ++entry) {
        bool replaced = false;
        for (const auto& [name, value] : added) replaced = replaced || std::string(*entry).starts_with(name + "=");
        if (!replaced) all.emplace_back(*entry);
    }
    for (const auto& [name, value] : added) all.push_back(name + "=" + value);
    return all;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

CRunResult RunProgram(const std::vector<std::string>& command,
                      const std::vector<std::pair<std::string, std::string>>& environment) {
    CRunResult result;
    const CCapture output, errors;
    std::vector<std::string> arguments = command, variables = Environment(environment);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.Handle(), 1);
    posix_spawn_file_actions_adddup2(&actions, errors.Handle(), 2);
    pid_t child = 0;
    const int failed = posix_spawnp(&child, arguments.at(0).c_str(), &actions, nullptr, Pointers(arguments).data(),
                                    Pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(failed, 0) << command[0] << ": " << std::strerror(failed);
    int status = 0;
    if (failed || waitpid(child, &status, 0) != child) return result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.output = output.Text();
    result.errors = errors.Text();
    return result;
}

std::vector<std::string> WithoutRights() {
    if (geteuid() != 0) return {};
    return {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--"};
}
