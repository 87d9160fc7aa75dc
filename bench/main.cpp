// Everything that is measured, in one run. bench/run builds and starts it.
#include <cstdio>
#include <thread>

#include "Measure.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: ovbench FOLDER-OF-THE-PROGRAMS\n");
        return 2;
    }
    // From the first thread on the C library gives up its single-thread shortcuts, as in every real host.
    std::thread([] {}).join();
    std::printf("measure\tours\treference\tratio\tgate\tgoal\tverdict\n");
    bench::Queries();
    bench::Registry();
    bench::Loads();
    bench::Documents();
    bench::Decisions();
    bench::Tracing();
    bench::Startup(argv[1]);
}
