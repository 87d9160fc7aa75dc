#include "WaitPool.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <thread>

#include "Event.h"
#include "ProcessObject.h"
#include "QuietThread.h"

namespace {

constexpr std::chrono::seconds kPatience(2);      // how long a thread without work stays
constexpr std::chrono::milliseconds kGrace(100);  // how long the last wait to go waits for the threads

class CWaitPool {
  public:
    void Run(std::shared_ptr<CRegisteredWait> wait) {
        const std::lock_guard lock(m_lock);
        m_work.push_back(std::move(wait));
        if (m_idle >= m_work.size()) {
            m_more.notify_one();
            return;
        }
        try {
            const auto self = m_threads.emplace(m_threads.end());
            try {
                self->thread = StartQuietThread([this, self] { Serve(self); });
            } catch (...) {
                m_threads.erase(self);
                throw;
            }
        } catch (...) {
            m_work.pop_back();
            throw;
        }
    }

    void AddWait() noexcept {
        const std::lock_guard lock(m_lock);
        ++m_waits;
    }
    void RemoveWait() noexcept {
        CThreads gone;
        std::unique_lock lock(m_lock);
        if (--m_waits != 0) return;
        m_more.notify_all();
        // They go at once, but for one in a call that nobody waits for, and the one that this may be.
        ++m_seeingOff;
        m_left.wait_for(lock, kGrace, [this] { return m_threads.size() <= (servesHere ? 1 : 0) || m_waits != 0; });
        --m_seeingOff;
        gone.swap(m_gone);
        lock.unlock();
    }

  private:
    // Waits for its end when it goes.
    struct CThread {
        std::thread thread;
        ~CThread() {
            if (thread.joinable()) thread.join();
        }
    };
    using CThreads = std::list<CThread>;

    void Serve(CThreads::iterator self) {
        servesHere = true;
        std::unique_lock lock(m_lock);
        for (;;) {
            if (m_work.empty()) {
                ++m_idle;
                m_more.wait_for(lock, kPatience, [this] { return !m_work.empty() || m_waits == 0; });
                --m_idle;
                if (m_work.empty()) {
                    Leave(self);
                    return;
                }
            }
            std::shared_ptr<CRegisteredWait> wait = std::move(m_work.front());
            m_work.pop_front();
            lock.unlock();
            wait->Run();
            wait.reset();  // its end may come back here
            lock.lock();
        }
    }

    // Whoever sees the threads off waits for this one's end; else nobody does.
    void Leave(CThreads::iterator self) {
        if (m_seeingOff != 0) {
            m_gone.splice(m_gone.end(), m_threads, self);
        } else {
            self->thread.detach();
            m_threads.erase(self);
        }
        m_left.notify_all();
    }

    static thread_local bool servesHere;  // whether this thread is one of a pool's

    std::mutex m_lock;
    std::condition_variable m_more;
    std::condition_variable m_left;
    std::deque<std::shared_ptr<CRegisteredWait>> m_work;
    CThreads m_threads;  // at work, or idle for a while
    CThreads m_gone;     // that have nothing left to do but to end
    std::size_t m_idle = 0;
    std::size_t m_seeingOff = 0;
    std::size_t m_waits = 0;  // that are registered
};

thread_local bool CWaitPool::servesHere = false;

using ThePool = CProcessObject<CWaitPool>;

}  // namespace

bool RunOnWaitPool(std::shared_ptr<CRegisteredWait> wait) noexcept {
    try {
        ThePool::Get().Run(std::move(wait));
        return true;
    } catch (...) {
        return false;
    }
}

const void* CountWait() {
    CWaitPool& pool = ThePool::Get();
    pool.AddWait();
    return &pool;
}

void ForgetWait(const void* pool) noexcept {
    if (CWaitPool* own = ThePool::IfMade(); own && own == pool) own->RemoveWait();
}
