// Goal 17 and the cost of one question: whole processes, from a warm page cache.
#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Measure.h"

extern char** environ;

namespace bench {
namespace {

void Run(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", 1 /* O_WRONLY */, 0);
    pid_t child = 0;
    int status = 0;
    Must(!posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) &&
             waitpid(child, &status, 0) == child && status == 0,
         arguments[0]);
    posix_spawn_file_actions_destroy(&actions);
}

Work Spawn(std::vector<std::string> command) {
    return [command](std::uint64_t times) {
        for (; times; --times) Run(command);
    };
}

}  // namespace

void Startup(const char* folder) {
    const std::string svinfo = std::string(folder) + "/svinfo";
    Compare("17 svinfo version, process / an empty C++ program", {1.6, 1.0}, Spawn({svinfo, "version"}),
            Spawn({std::string(folder) + "/bench_empty"}));

    // The samples' computer, which reads five policy files, and the same value in a database.
    namespace fs = std::filesystem;
    const std::string samples = fs::canonical(fs::path(folder) / "../../../samples").string();
    const std::string root = fs::absolute("bench-samples").string(), database = fs::absolute("bench-get.db").string();
    fs::remove_all(root);
    fs::remove(database);
    Run({svinfo, "--root", root, "reg", "import", samples + "/machine.reg"});
    Run({svinfo, "--root", root, "reg", "add", "HKLM\\SOFTWARE\\Orvantis\\Core", "BinDir", "REG_SZ", root});
    Run({svinfo, "--root", root, "reg", "add", "HKLM\\SOFTWARE\\Orvantis", "OrvantisPath", "REG_SZ", samples});
    Run({"sqlite3", database,
         "create table val(name text primary key, data) without rowid; insert into val values('LockTimeout', 300)"});
    Compare("svinfo get NAME, process / sqlite3 FILE 'select'", {2.5, 2.5},
            Spawn({svinfo, "--root", root, "get", "LockTimeout"}),
            Spawn({"sqlite3", database, "select data from val where name='LockTimeout'"}));
}

}  // namespace bench
