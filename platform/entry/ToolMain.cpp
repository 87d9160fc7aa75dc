// The entry of the tool on this home, where arguments are UTF-8 already. The verbs are a library beside the program: it
// is loaded when one is asked for.
#include "svinfo/Main.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>

#include "ToolVerbs.h"

bool OvIsTerminal(int stream) {
    return isatty(stream) == 1;
}

namespace {

// The library beside the program, or where it is installed; in full: a name alone is looked for as the caller of dlopen
// would, and that may be a library that has put itself between.
std::string VerbsPath() {
    char program[4096];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program);
    const std::string path(program, length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    const std::string beside = folder + kToolVerbsFile;
    return access(beside.c_str(), F_OK) == 0 ? beside : folder + OV_MODULES_FROM_PROGRAM "/" + kToolVerbsFile;
}

}  // namespace

int OvRunVerbs(const std::vector<std::string>& args) {
    void* library = dlopen(VerbsPath().c_str(), RTLD_NOW);  // stays loaded to the end
    void* entry = library ? dlsym(library, kToolVerbsEntry) : nullptr;
    if (!entry) {
        std::fprintf(stderr, "svinfo: load the verbs: %s\n", dlerror());
        return 5;
    }
    std::vector<const char*> texts;
    for (const std::string& arg : args) texts.push_back(arg.c_str());
    return reinterpret_cast<decltype(&OvToolVerbs)>(entry)(texts.data(), texts.size(), OvIsTerminal(1));
}

int main(int argc, char** argv) {
    return OvMain({argv + (argc > 0 ? 1 : 0), argv + argc});
}
