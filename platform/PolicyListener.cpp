#include "PolicyListener.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Home.h"
#include "PolicyStamp.h"
#include "ProcessObject.h"
#include "QuietThread.h"

namespace {

// One policy: its stamp as it was seen last, and the events that hear of the next one.
struct CWatched {
    CPolicyFiles files;
    std::uint64_t seen = 0;  // the listening thread's
    std::map<HANDLE, std::shared_ptr<CEvent>> events;
};

class CListener {
  public:
    explicit CListener(std::string root)
        : m_root(std::move(root)),
          m_stop(eventfd(0, EFD_CLOEXEC)),
          m_watched{CWatched{CPolicyFiles(m_root, false), 0, {}}, CWatched{CPolicyFiles(m_root, true), 0, {}}} {
        if (!m_stop) throw std::system_error(errno, std::generic_category());
        for (CWatched& watched : m_watched) watched.seen = watched.files.Stamp();
        m_thread = StartQuietThread([this] { Listen(); });
    }
    ~CListener() {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(m_stop.Get(), &one, sizeof one);
        m_thread.join();
    }
    CListener(const CListener&) = delete;
    CListener& operator=(const CListener&) = delete;

    const std::string& Root() const noexcept { return m_root; }

    void Add(HANDLE handle, std::shared_ptr<CEvent> event, bool machine) {
        const std::lock_guard lock(m_lock);
        m_watched[machine].events.insert_or_assign(handle, std::move(event));
    }
    bool Remove(HANDLE handle) noexcept {
        const std::lock_guard lock(m_lock);
        return m_watched[0].events.erase(handle) + m_watched[1].events.erase(handle) != 0;
    }
    bool IsIdle() noexcept {
        const std::lock_guard lock(m_lock);
        return m_watched[0].events.empty() && m_watched[1].events.empty();
    }

  private:
    void Listen() noexcept {
        // A watch takes the kernel up to 20 milliseconds to end. Who came for one answer is gone before there is any.
        for (int look = 0; look < 10; ++look) {
            if (!Wait(5)) return;
            LookAtAll();
        }
        m_watch = CFile(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        for (;;) {
            // Watched again before the stamps are looked at, or what changes between the two would be lost.
            Watch();
            LookAtAll();
            // Where the user has too many watches, time must do.
            if (!Wait(m_watch ? -1 : 200)) return;
            alignas(inotify_event) char events[4096];
            while (read(m_watch.Get(), events, sizeof events) > 0) {
            }
        }
    }

    // False when it is time to end.
    bool Wait(int milliseconds) const noexcept {
        pollfd waiting[] = {{m_stop.Get(), POLLIN, 0}, {m_watch.Get(), POLLIN, 0}};
        if (poll(waiting, 2, milliseconds) < 0 && errno != EINTR) return false;
        return waiting[0].revents == 0;
    }

    // The folder of the stamps, or the deepest one above it that exists, in which the next one will be made. One that
    // is made between two looks is found by the second. To add a watch that is there changes nothing.
    void Watch() noexcept {
        const std::string& stamps = m_watched[0].files.Folder();
        try {
            // Not for ever: there may be a folder that cannot be watched.
            for (int look = 0; look < 16 && !Add(stamps, IN_CLOSE_WRITE | IN_MOVED_TO); ++look) {
                std::string missing = stamps;
                std::string above = Parent(stamps);
                while (above.size() > 1 && !Add(above, IN_CREATE | IN_MOVED_TO)) {
                    missing = above;
                    above = Parent(above);
                }
                if (access(missing.c_str(), F_OK) != 0) return;
            }
        } catch (const std::bad_alloc&) {
        }
    }
    bool Add(const std::string& folder, std::uint32_t events) const noexcept {
        return inotify_add_watch(m_watch.Get(), folder.c_str(), events) >= 0;
    }
    static std::string Parent(const std::string& folder) {
        const std::size_t slash = folder.find_last_of('/');
        return slash == std::string::npos || slash == 0 ? "/" : folder.substr(0, slash);
    }

    void LookAtAll() noexcept {
        for (CWatched& watched : m_watched) Look(watched);
    }
    void Look(CWatched& watched) noexcept {
        const std::uint64_t now = watched.files.Stamp();
        if (now == watched.seen) return;
        watched.seen = now;
        const std::lock_guard lock(m_lock);
        for (const auto& entry : watched.events) entry.second->Set();
    }

    const std::string m_root;
    CFile m_stop;
    CFile m_watch;                      // the thread's
    std::mutex m_lock;                  // guards the events; that of an event is taken under it
    std::array<CWatched, 2> m_watched;  // users, machine
    std::thread m_thread;
};

// One for each root: a process has one root, and a test one after the other.
class CListeners {
  public:
    void Add(HANDLE handle, std::shared_ptr<CEvent> event, bool machine) {
        const std::lock_guard lock(m_lock);
        for (const auto& listener : m_listeners) {
            if (listener->Root() == OvRoot()) return listener->Add(handle, std::move(event), machine);
        }
        auto made = std::make_unique<CListener>(OvRoot());
        made->Add(handle, std::move(event), machine);
        m_listeners.push_back(std::move(made));
    }

    bool Remove(HANDLE handle) noexcept {
        std::unique_ptr<CListener> idle;  // its thread is waited for without the lock
        const std::lock_guard lock(m_lock);
        for (auto at = m_listeners.begin(); at != m_listeners.end(); ++at) {
            if (!(*at)->Remove(handle)) continue;
            if ((*at)->IsIdle()) {
                idle = std::move(*at);
                m_listeners.erase(at);
            }
            return true;
        }
        return false;
    }

  private:
    std::mutex m_lock;
    std::vector<std::unique_ptr<CListener>> m_listeners;
};

using TheListeners = CProcessObject<CListeners>;

}  // namespace

void AddPolicyListener(HANDLE handle, std::shared_ptr<CEvent> event, bool machine) {
    TheListeners::Get().Add(handle, std::move(event), machine);
}

bool RemovePolicyListener(HANDLE handle) noexcept {
    CListeners* listeners = TheListeners::IfMade();
    return listeners && listeners->Remove(handle);
}
