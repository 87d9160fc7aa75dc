// Linked into each module that is unloaded: gives back what the C++ library inside it has kept for exceptions when
// there is no memory. It never does so by itself, and a module that is loaded for each event would lose 72 KB each
// time.
#include <dlfcn.h>

namespace __gnu_cxx {
__attribute__((weak)) void __freeres();  // of libstdc++
}

namespace {

bool IsInThisModule(void* address) noexcept {
    static const char here = 0;
    dl_find_object self, other;
    return _dl_find_object(const_cast<char*>(&here), &self) == 0 && _dl_find_object(address, &other) == 0 &&
           self.dlfo_link_map == other.dlfo_link_map;
}

// Behind everything that might still throw. Where the C++ library is a shared one, what it keeps is the process's.
__attribute__((destructor(101))) void GiveBack() noexcept {
    if (&__gnu_cxx::__freeres && IsInThisModule(reinterpret_cast<void*>(&__gnu_cxx::__freeres))) __gnu_cxx::__freeres();
}

}  // namespace
