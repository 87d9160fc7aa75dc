// Everything that is measured, in one run, or one group of it. bench/run builds and starts it.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

#include "Measure.h"
#include "Platform.h"

namespace {

const char* theFolder;

const struct {
    const char* name;
    void (*measure)();
} kGroups[] = {
    {"queries", bench::Queries},
    {"registry", bench::Registry},
    {"loads", bench::Loads},
    {"documents", bench::Documents},
    {"cache", bench::Cache},
    {"decisions", bench::Decisions},
    {"writes", [] { bench::Writes(theFolder); }},
    {"lifecycle", bench::Lifecycle},
    {"tracing", bench::Tracing},
    {"startup", [] { bench::Startup(theFolder); }},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: ovbench FOLDER-OF-THE-PROGRAMS [GROUP]\n");
        return 2;
    }
    theFolder = argv[1];
    // A computer of the run's own, whatever else this one is.
    const std::filesystem::path root = std::filesystem::absolute("bench-root");
    std::filesystem::remove_all(root);
    std::filesystem::remove("svinfo.cch");  // of the run before
    bench::Must(OvSetRoot(root.c_str()) == ERROR_SUCCESS, "root");
    // From the first thread on the C library gives up its single-thread shortcuts, as in every real host.
    std::thread([] {}).join();
    std::printf("measure\tours\treference\tratio\tgate\tgoal\tverdict\n");
    bool known = false;
    for (const auto& group : kGroups) {
        if (argc == 3 && std::strcmp(argv[2], group.name) != 0) continue;
        known = true;
        group.measure();
    }
    if (!known) std::fprintf(stderr, "ovbench: there is no group '%s'\n", argv[2]);
    return known ? 0 : 2;
}
