// One object of the process: made at its first use, and never destroyed, since threads may use it until the end. The
// child of a fork, which has none of those threads, begins with one of its own.
#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>

template <class T>
class CProcessObject {
  public:
    // Raises std::bad_alloc.
    static T& Get() {
        static_cast<void>(s_forgottenByForks);
        if (T* object = s_object.load()) return *object;
        auto made = std::make_unique<T>();
        T* seen = nullptr;
        return s_object.compare_exchange_strong(seen, made.get()) ? *made.release() : *seen;
    }
    static T* IfMade() noexcept { return s_object.load(); }

  private:
    static inline std::atomic<T*> s_object{nullptr};
    static inline const bool s_forgottenByForks =
        pthread_atfork(nullptr, nullptr, [] { s_object.store(nullptr); }) == 0;
};
