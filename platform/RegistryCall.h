// The rim of the registry: nothing is raised out of a call.
#pragma once

#include <new>

#include "win/types.h"

template <class Body>
LSTATUS RegistryCall(Body&& body) noexcept {
    try {
        return static_cast<LSTATUS>(body());
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    } catch (...) {
        return ERROR_GEN_FAILURE;
    }
}
