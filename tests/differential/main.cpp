// differential FOLDER SEED...: the same questions on each home, a few hundred for each seed. Each seed has a root of
// its own in FOLDER.
//
// differential --compare LAYER WINDOWS TABLE: the answers of both homes beside each other. tests/differential/run does
// all of it.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "differential/Compare.h"
#include "differential/RegistryActs.h"
#include "differential/ServerActs.h"
#include "module/RegistryKey.h"

namespace {

namespace fs = std::filesystem;

constexpr int kSteps = 600;

// Keys that each home has from the beginning or from the first write on: both begin with all of them.
bool MakeTheUsualKeys() {
    static constexpr LPCWSTR kUsual[] = {W("SOFTWARE\\Classes"), W("SOFTWARE\\Wow6432Node"), W("SOFTWARE\\D"),
                                         W("SOFTWARE\\Wow6432Node\\D")};
    for (LPCWSTR path : kUsual) {
        CRegistryKey key;
        if (key.Create(HKEY_LOCAL_MACHINE, path, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr)) return false;
    }
    return true;
}

bool Run(const std::string& root, std::uint32_t seed) {
    std::error_code ignored;
    fs::remove("svinfo.cch", ignored);  // of the seed before, or of the other home
    if (const DWORD error = OvSetRoot(root.c_str())) {
        std::fprintf(stderr, "differential: root %s: error %u\n", root.c_str(), static_cast<unsigned>(error));
        return false;
    }
    if (!MakeTheUsualKeys()) {
        std::fprintf(stderr, "differential: no keys in root %s\n", root.c_str());
        return false;
    }
    CChoice choice(seed);
    CTranscript transcript(seed);
    CRegistryActs registry(choice, transcript);
    CServerActs server(choice, transcript);
    for (int step = 0; step < kSteps; ++step) {
        if (choice.OneIn(3)) {
            server.Act();
        } else {
            registry.Act();
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::string(argv[1]) == "--compare") return CompareHomes(argv[2], argv[3], argv[4]) ? 0 : 1;
    if (argc < 3 || argv[1][0] == '-') {
        std::fputs("differential FOLDER SEED...\ndifferential --compare LAYER WINDOWS TABLE\n", stderr);
        return 2;
    }
    bool good = true;
    for (int i = 2; i < argc && good; ++i) {
        const std::string root = std::string(argv[1]) + '/' + argv[i];
        good = Run(root, static_cast<std::uint32_t>(std::strtoul(argv[i], nullptr, 10)));
        OvForgetRoot(root.c_str());
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    return good && std::fflush(stdout) == 0 ? 0 : 1;
}
