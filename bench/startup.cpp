// Goal 17: whole processes, from a warm page cache.
#include <spawn.h>
#include <sys/wait.h>

#include <string>

#include "Measure.h"

extern char** environ;

namespace bench {
namespace {

Work Spawn(std::string program, std::string argument) {
    return [program, argument](std::uint64_t times) {
        for (; times; --times) {
            char* arguments[] = {const_cast<char*>(program.c_str()), const_cast<char*>(argument.c_str()), nullptr};
            posix_spawn_file_actions_t actions;
            posix_spawn_file_actions_init(&actions);
            posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", 1 /* O_WRONLY */, 0);
            pid_t child = 0;
            int status = 0;
            Must(!posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ) &&
                     waitpid(child, &status, 0) == child && status == 0,
                 program.c_str());
            posix_spawn_file_actions_destroy(&actions);
        }
    };
}

}  // namespace

void Startup(const char* folder) {
    const std::string bin = folder;
    Compare("17 svinfo version, process / an empty C++ program", {1.6, 1.0}, Spawn(bin + "/svinfo", "version"),
            Spawn(bin + "/bench_empty", ""));
}

}  // namespace bench
