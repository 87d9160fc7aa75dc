#include "win/types.h"

namespace {

// Read on roads that count nanoseconds; the layer is loaded at the start of its hosts, so this model can serve it.
__attribute__((tls_model("initial-exec"))) thread_local DWORD lastError = 0;

}  // namespace

DWORD WINAPI GetLastError() {
    return lastError;
}

void WINAPI SetLastError(DWORD error) {
    lastError = error;
}
