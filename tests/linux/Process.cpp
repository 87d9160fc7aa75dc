#include "linux/Process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

extern char** environ;

namespace {

// Both ends are closed in other processes; the child's own are put in place of its input and output.
struct Pipe {
    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
    int ends[2] = {-1, -1};
};

}  // namespace

CProcess::CProcess(const std::string& role, const std::vector<std::string>& arguments) {
    std::signal(SIGPIPE, SIG_IGN);  // a process that was killed is told by what it does not answer
    std::vector<std::string> words = {"/proc/self/exe", "--role=" + role};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);

    const Pipe input;
    const Pipe output;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.ends[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);
    EXPECT_EQ(posix_spawn(&m_process, "/proc/self/exe", &actions, nullptr, pointers.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(input.ends[0]);
    close(output.ends[1]);
    m_input = input.ends[1];
    m_output = output.ends[0];
}

CProcess::~CProcess() {
    Wait();
}

std::string CProcess::Ask(const std::string& question) {
    Tell(question);
    return Hear();
}

void CProcess::Tell(const std::string& question) {
    const std::string line = question + '\n';
    static_cast<void>(!write(m_input, line.data(), line.size()));
}

std::string CProcess::Hear() {
    std::string answer;
    for (char byte; read(m_output, &byte, 1) == 1; answer += byte) {
        if (byte == '\n') return answer;
    }
    return "gone";
}

void CProcess::Kill() {
    kill(m_process, SIGKILL);
}

int CProcess::Wait() {
    if (m_process < 0) return -1;
    close(m_input);
    int status = 0;
    EXPECT_EQ(waitpid(m_process, &status, 0), m_process);
    close(m_output);
    m_process = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}
