// Threads of the layer's own, inside a host that does not know of them: no signal of the host is delivered to one.
#pragma once

#include <csignal>
#include <thread>
#include <utility>

// Raises std::system_error when there is no thread to be had, std::bad_alloc when there is no memory.
template <class Body>
std::thread StartQuietThread(Body body) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread thread(std::move(body));
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return thread;
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
}
