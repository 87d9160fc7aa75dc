#include <gtest/gtest.h>

#include <cstdio>

#include "Platform.h"
#include "support/ChildRole.h"
#include "support/Gaps.h"

int main(int argc, char** argv) {
    if (const std::optional<int> exitCode = CChildRole::Play(argc, argv)) return *exitCode;
    testing::InitGoogleTest(&argc, argv);
    if (const std::string error = HoldTestsToTheGaps(OV_HOMES_TABLE); !error.empty()) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 2;
    }
    // Hosts of COM components do; the system's XML document wants it.
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    return RUN_ALL_TESTS();
}
