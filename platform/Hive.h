// A hive: the tree of keys of the machine, or of one user, in its file.
//
// Reads    are answered from a view in memory. It is true as long as the generation says so; else SQLite is asked
//          whether anything was committed, and only what is needed is read again, in one transaction.
// Writes   each is a transaction of its own on a second connection, or part of its thread's batch. A process that
//          writes carries its own changes over into its view.
// States   no file: reads as empty, and the first write makes it. A file that took the place of another: the handles on
//          the old one's keys are dead (1018).
// Locks    m_gate, then m_lock. m_gate is held by whoever writes, a batch holds it from its first write to its end, and
//          waiting for it ends with ERROR_BUSY (170). m_lock is held for the length of a read, and by a writer only
//          to carry over what it did: readers wait for no writer. The lock of CHives comes before both, except that a
//          batch may take it with its gates held: while there is a batch, nobody waits for a gate under that lock.
//          Under m_lock only the lock of the handle table is taken. No two hives are locked at once, but by a fork.
// Forks    every connection is closed before and opened again when it is needed (CHives).
#pragma once

#include <atomic>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>

#include "HiveFiles.h"
#include "HiveGeneration.h"
#include "HiveView.h"
#include "KeyHandles.h"

class CBatch;

// One change of a hive, to be made in a transaction and then known to a view.
class CHiveChange {
  public:
    virtual ~CHiveChange() = default;
    // Whether a hive that does not exist is made for it.
    virtual bool MakesHive() const noexcept = 0;
    virtual DWORD Make(CHiveDatabase& database) = 0;
    virtual void CarryOver(CHiveView& view) const = 0;
};

class CHive {
  public:
    // Machine and user hives lie in files. Users is the list of the latter, an empty tree of its own.
    enum class Kind { Machine, User, Users };

    CHive(Kind kind, CHiveFiles files) : m_kind(kind), m_files(std::move(files)), m_slots(*this) {}
    CHive(const CHive&) = delete;
    CHive& operator=(const CHive&) = delete;

    Kind GetKind() const noexcept { return m_kind; }
    std::mutex& Lock() noexcept { return m_lock; }

    // All four under Lock(). Read calls `resolve`, DWORD(CHiveView&), once or several times, and returns its result or
    // an error of its own; records that it finds stay until the lock is left. It must do nothing but look.
    template <class Resolve>
    DWORD Read(Resolve&& resolve);
    CKeySlots& Slots() noexcept { return m_slots; }
    std::uint32_t Incarnation() const noexcept { return m_incarnation; }
    bool IsWritable() const noexcept { return MayWrite(m_files); }

    // Without the lock. ERROR_KEY_DELETED when the hive is not the one of `incarnation` any more.
    DWORD Write(CHiveChange& change, std::uint32_t incarnation);
    // By the batch that wrote here, once.
    DWORD EndBatch(bool commit) noexcept;

    // Takes the hive to another place, all handles on it dead. No batch may be open.
    void MoveTo(CHiveFiles files) noexcept;

    // When it was used last, milliseconds of the coarse clock; kNever when it rests, or is in use now.
    static constexpr std::int64_t kNever = INT64_MAX;
    std::int64_t LastUse() noexcept;
    // Closes the connections; false when somebody writes. What is in memory stays of use.
    bool Rest() noexcept;

    // Around a fork.
    void PrepareFork() noexcept;
    void EndForkInParent() noexcept;
    void EndForkInChild() noexcept;

  private:
    using Resolver = std::function<DWORD(CHiveView&)>;
    static constexpr std::int64_t kNoVersion = -1;
    // How long a hive or a generation that was replaced by hand may stay unnoticed, milliseconds.
    static constexpr std::int64_t kLookInterval = 50;

    // What must stay the same while a stand-in's rows are true.
    struct CStandInTag {
        CGenerationCounters counters;
        CFileIdentity log;
        off_t size = 0;
        timespec changed = {};

        bool operator==(const CStandInTag& other) const noexcept;
    };

    bool IsOwnBatch() const noexcept;
    bool IsCurrent() noexcept;
    bool IsCurrentByVersion() noexcept;
    void Look() noexcept;
    DWORD ReadRows(const Resolver& resolve);
    DWORD ReadInBatch(const Resolver& resolve);
    DWORD Attach();
    DWORD ReadTransaction(const Resolver& resolve);
    bool ReadFromStandIn(const Resolver& resolve, DWORD& result);
    CStandInTag StandInTag() const noexcept;
    void Adopt(const CFileIdentity& identity) noexcept;
    void CloseReaders() noexcept;
    void ForgetView() noexcept;

    DWORD BeginWrite(bool makesHive, std::uint32_t incarnation);
    DWORD CommitWrite(const CHiveChange* change) noexcept;
    DWORD WriteInBatch(CBatch& batch, CHiveChange& change, std::uint32_t incarnation);
    void CloseWriter() noexcept;

    const Kind m_kind;

    // Guarded by m_gate.
    std::unique_ptr<std::mutex> m_gate{new std::mutex};
    std::unique_ptr<CHiveDatabase> m_writer;
    CFileIdentity m_writerIdentity;
    CHiveGeneration m_writerGeneration;
    bool m_hasNoStaleKeys = false;
    std::int64_t m_batchFirstId = 0;  // keys of the batch have this id or a later one

    // Guarded by m_lock; written with m_gate held as well.
    CHiveFiles m_files;
    std::atomic<CBatch*> m_batch{nullptr};  // a fork reads it without the locks
    CHiveView m_batchView;                  // what the batch sees
    CFileIdentity m_lostFile;               // a parent's batch was open on it: no connection is possible here

    // Guarded by m_lock.
    std::mutex m_lock;
    CKeySlots m_slots;
    CFileIdentity m_identity;  // empty when there is no file
    std::uint32_t m_incarnation = 0;
    std::unique_ptr<CHiveDatabase> m_reader;
    std::unique_ptr<CHiveDatabase> m_standIn;
    CStandInTag m_standInTag;
    CHiveGeneration m_generation;
    CHiveView m_view;
    std::uint64_t m_viewGeneration = 0;       // for which the view is true; 0 when no generation tells
    std::int64_t m_viewVersion = kNoVersion;  // the same, told by m_reader
    std::int64_t m_nextLook = 0;              // milliseconds of the coarse clock
    bool m_gateHeldByFork = false;
};

// Milliseconds, coarse and cheap.
inline std::int64_t CoarseMilliseconds() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

inline bool CHive::IsCurrent() noexcept {
    if (CoarseMilliseconds() >= m_nextLook) Look();
    return m_viewGeneration != 0 && m_viewGeneration == m_generation.Begun();
}

template <class Resolve>
DWORD CHive::Read(Resolve&& resolve) {
    if (m_batch.load(std::memory_order_relaxed) && IsOwnBatch()) return ReadInBatch(std::ref(resolve));
    if (IsCurrent()) [[likely]] {
        const DWORD result = resolve(m_view);
        if (result != kRowsWanted) return result;
    }
    return ReadRows(std::ref(resolve));
}
