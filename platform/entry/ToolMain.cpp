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

int OvRunVerbs(const std::vector<std::string>& args) {
    void* library = dlopen(kToolVerbsFile, RTLD_NOW);  // found by the program's own run path; loaded to the end
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
