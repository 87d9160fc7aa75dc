// How a hive takes writes, and what a fork does to it.
#include <chrono>
#include <new>
#include <thread>

#include "Batch.h"
#include "BootId.h"
#include "Hive.h"

namespace {

// As long as SQLite is given for its own lock.
constexpr std::chrono::seconds kPatience{10};

constexpr int kAttempts = 5;

// In pauses: a lock that is told when to give up would follow the wall clock's changes, or, by the steady clock, be
// unknown to the thread sanitizer of GCC 12.
std::unique_lock<std::mutex> LockPatiently(std::mutex& mutex) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    std::unique_lock lock(mutex, std::try_to_lock);
    for (std::chrono::microseconds pause{10}; !lock && std::chrono::steady_clock::now() < end; lock.try_lock()) {
        std::this_thread::sleep_for(pause);
        if (pause < std::chrono::milliseconds(1)) pause *= 2;
    }
    return lock;
}

// Volatile keys of an earlier run of the computer. `none` is set once there are none.
DWORD RemoveStale(CHiveDatabase& database, bool& none) noexcept {
    if (none) return ERROR_SUCCESS;
    {
        CQuery stale(database, Sql::StaleKeys);
        none = !stale.Bind(BootId()).Row();
        if (none) return stale.Error();
    }
    if (const DWORD error = CQuery(database, Sql::RemoveStaleValues).Bind(BootId()).Execute()) return error;
    bool hasSecurity = false;
    if (const DWORD error = database.HasSecurity(hasSecurity)) return error;
    if (hasSecurity) {
        if (const DWORD error = CQuery(database, Sql::RemoveStaleSecurity).Bind(BootId()).Execute()) return error;
    }
    return CQuery(database, Sql::RemoveStaleKeys).Bind(BootId()).Execute();
}

}  // namespace

DWORD CHive::Write(CHiveChange& change, std::uint32_t incarnation) {
    if (CBatch* batch = CBatch::Current()) return WriteInBatch(*batch, change, incarnation);
    const std::unique_lock gate = LockPatiently(*m_gate);
    if (!gate) return ERROR_BUSY;
    if (const DWORD error = BeginWrite(change.MakesHive(), incarnation)) return error;
    const std::int64_t changes = m_writer->Changes();
    DWORD error;
    try {
        error = change.Make(*m_writer);
    } catch (...) {
        m_writer->Rollback();
        throw;
    }
    if (!error && m_writer->Changes() != changes) return CommitWrite(&change);
    m_writer->Rollback();
    if (m_writer->HasFailed()) CloseWriter();
    return error;
}

// Opens the transaction on the hive that lies under the name now.
DWORD CHive::BeginWrite(bool makesHive, std::uint32_t incarnation) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        CFileIdentity identity;
        DWORD error = IdentifyFile(m_files.database, identity);
        if (error == ERROR_PATH_NOT_FOUND) {
            if (!makesHive) return ERROR_FILE_NOT_FOUND;
            if ((error = MakeHive(m_files))) return error;
            continue;
        }
        if (error) return error;
        if (identity == m_lostFile) return ERROR_REGISTRY_IO_FAILED;
        {
            const std::lock_guard lock(m_lock);
            Adopt(identity);
            if (incarnation != m_incarnation) return ERROR_KEY_DELETED;
        }
        if (m_writerIdentity != identity) CloseWriter();
        if (!m_writer) {
            if ((error = CHiveDatabase::Open(m_files.database, CHiveDatabase::Use::Write, m_writer))) return error;
            m_writerIdentity = identity;
            m_hasNoStaleKeys = false;
            RepairAccess(m_files);
        }
        m_writer->ForgetFailure();
        error = m_writer->Run(Sql::BeginWrite);
        if (!error) error = m_writer->Identify();
        if (!error) error = RemoveStale(*m_writer, m_hasNoStaleKeys);
        if (error) {
            CloseWriter();
            return error;
        }
        // Nobody replaced the file while it was opened, or while this process waited for the lock.
        if (!IdentifyFile(m_files.database, identity) && identity == m_writerIdentity) return ERROR_SUCCESS;
        CloseWriter();
    }
    return ERROR_BUSY;
}

void CHive::CloseWriter() noexcept {
    if (m_writer) m_writer->Rollback();
    m_writer.reset();
    m_writerGeneration.Unmap();
    m_writerIdentity = {};
}

// `change` is null for a batch, whose view takes the place of the common one.
DWORD CHive::CommitWrite(const CHiveChange* change) noexcept {
    DWORD error = ERROR_SUCCESS;
    try {
        error = m_writerGeneration.Prepare(m_files);
    } catch (...) {
        error = ERROR_OUTOFMEMORY;
    }
    if (error) {
        m_writer->Rollback();
        return error;
    }
    const std::uint64_t before = m_writerGeneration.Read().Settled();
    const std::uint64_t number = m_writerGeneration.Begin();
    error = m_writer->Run(Sql::Commit);
    if (error) m_writer->Rollback();
    m_writerGeneration.End(number);
    if (error) {
        CloseWriter();
        return error;
    }
    const std::lock_guard lock(m_lock);
    if (!change) {
        ForgetView();
        m_view.Swap(m_batchView);
        m_viewGeneration = number;
        return ERROR_SUCCESS;
    }
    // Nobody else committed since the view was true: the write lock was held from before the counters were read.
    if (m_viewGeneration == 0 || m_viewGeneration != before) return ERROR_SUCCESS;
    try {
        change->CarryOver(m_view);
        m_viewGeneration = number;
        m_viewVersion = kNoVersion;
    } catch (...) {
        ForgetView();
    }
    if (m_view.IsWasteful()) ForgetView();
    return ERROR_SUCCESS;
}

DWORD CHive::WriteInBatch(CBatch& batch, CHiveChange& change, std::uint32_t incarnation) {
    if (batch.Failure()) return batch.Failure();
    if (m_batch.load(std::memory_order_relaxed) != &batch) {
        batch.Reserve();
        std::unique_lock gate = LockPatiently(*m_gate);
        if (!gate) return ERROR_BUSY;
        if (const DWORD error = BeginWrite(change.MakesHive(), incarnation)) return error;
        CQuery last(*m_writer, Sql::LastId);
        if (!last.Row()) {
            const DWORD error = last.Error() ? last.Error() : static_cast<DWORD>(ERROR_REGISTRY_CORRUPT);
            m_writer->Rollback();
            return error;
        }
        m_batchFirstId = last.Number(0) + 1;
        const std::lock_guard lock(m_lock);
        m_batchView.Reset();
        m_batch.store(&batch, std::memory_order_relaxed);
        batch.Join(*this);
        gate.release();
    }
    DWORD error;
    try {
        error = change.Make(*m_writer);
    } catch (...) {
        batch.Fail(ERROR_OUTOFMEMORY);
        throw;
    }
    // What was half done cannot be told from the rest of the transaction, and SQLite may have ended it.
    if (m_writer->HasFailed()) batch.Fail(error);
    if (error) return error;
    const std::lock_guard lock(m_lock);
    try {
        change.CarryOver(m_batchView);
    } catch (...) {
        m_batchView.Reset();
    }
    if (m_batchView.IsWasteful()) m_batchView.Reset();
    return ERROR_SUCCESS;
}

DWORD CHive::EndBatch(bool commit) noexcept {
    DWORD error = ERROR_SUCCESS;
    if (commit) {
        // Into a file that was replaced meanwhile nobody would ever look.
        CFileIdentity identity;
        error = IdentifyFile(m_files.database, identity);
        if (!error && identity != m_writerIdentity) error = ERROR_KEY_DELETED;
        if (!error) error = CommitWrite(nullptr);
    }
    if (!commit || error) CloseWriter();
    {
        const std::lock_guard lock(m_lock);
        m_batch.store(nullptr, std::memory_order_relaxed);
        m_batchView.Reset();
        if (!commit || error) m_slots.KillFrom(m_batchFirstId);
    }
    m_gate->unlock();
    return error;
}

void CHive::MoveTo(CHiveFiles files) noexcept {
    // Who holds the gate writes one thing, and gives up on a locked hive by itself. A batch, which may wait for the
    // lock of CHives with its gates held, does not exist.
    std::unique_lock gate(*m_gate, std::defer_lock);
    while (!gate) gate = LockPatiently(*m_gate);
    CloseWriter();
    const std::lock_guard lock(m_lock);
    ++m_incarnation;
    m_identity = {};
    CloseReaders();
    m_generation.Unmap();
    ForgetView();
    m_files = std::move(files);
    m_nextLook = 0;
}

std::int64_t CHive::LastUse() noexcept {
    const std::unique_lock lock(m_lock, std::try_to_lock);
    return lock && m_nextLook != 0 ? m_nextLook : kNever;
}

bool CHive::Rest() noexcept {
    const std::unique_lock gate(*m_gate, std::try_to_lock);
    if (!gate) return false;
    CloseWriter();
    const std::lock_guard lock(m_lock);
    CloseReaders();
    m_nextLook = 0;
    return true;
}

// SQLite keeps book of its locks for the whole process, and the book is inherited while the locks are not. So there
// must be no connection when the child begins. That of a batch cannot be closed; the child goes without the hive then.
void CHive::PrepareFork() noexcept {
    m_gateHeldByFork = false;
    while (!m_batch.load(std::memory_order_relaxed)) {
        m_gateHeldByFork = m_gate->try_lock();
        if (m_gateHeldByFork) break;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    m_lock.lock();
    CloseReaders();
    if (m_gateHeldByFork) CloseWriter();
}

void CHive::EndForkInParent() noexcept {
    m_lock.unlock();
    if (m_gateHeldByFork) m_gate->unlock();
}

void CHive::EndForkInChild() noexcept {
    if (m_gateHeldByFork) {
        m_gate->unlock();
    } else {
        // The gate stays closed by a thread of the parent, and is left behind for a new one. Without memory for that,
        // all writes end with ERROR_BUSY.
        if (auto* gate = new (std::nothrow) std::mutex) {
            static_cast<void>(m_gate.release());
            m_gate.reset(gate);
        }
        CHiveDatabase::Abandon(m_writer);
        m_lostFile = m_writerIdentity;
        m_writerIdentity = {};
        m_batch.store(nullptr, std::memory_order_relaxed);
    }
    m_lock.unlock();
}
