// The entry of a tool on this home: arguments come in 16-bit units, and the C library would turn every line end it
// writes into two characters.
#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "Platform.h"
#include "svinfo/Main.h"

namespace {

// A surrogate without its partner becomes U+FFFD.
std::string Utf8(const wchar_t* text) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return {};
    std::string out(static_cast<std::size_t>(size - 1), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), size, nullptr, nullptr);
    return out;
}

}  // namespace

bool OvIsTerminal(int stream) {
    return _isatty(stream) != 0;
}

int wmain(int argc, wchar_t** argv) {
    for (FILE* stream : {stdin, stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
    if (const DWORD error = OvUseRootOfEnvironment()) {
        std::fprintf(stderr, "svinfo: the root in OV_ROOT cannot be used: error %lu\n", error);
        return 5;
    }
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) args.push_back(Utf8(argv[i]));
    return OvMain(args);
}
