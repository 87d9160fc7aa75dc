// How a hive answers reads.
#include <sys/stat.h>

#include <utility>

#include "Batch.h"
#include "Hive.h"

namespace {

// Ends a read transaction, also when an exception passes.
class CReadTransaction {
  public:
    explicit CReadTransaction(CHiveDatabase& database) noexcept : m_database(database) {
        database.ForgetFailure();
        m_error = database.Run(Sql::Begin);
    }
    ~CReadTransaction() { m_database.Rollback(); }
    CReadTransaction(const CReadTransaction&) = delete;
    CReadTransaction& operator=(const CReadTransaction&) = delete;

    DWORD Error() const noexcept { return m_error; }

  private:
    CHiveDatabase& m_database;
    DWORD m_error;
};

// Lets a view load rows for as long as it lives.
class CViewSource {
  public:
    CViewSource(CHiveView& view, CHiveDatabase& database) noexcept : m_view(view) { view.SetSource(&database); }
    ~CViewSource() { m_view.SetSource(nullptr); }
    CViewSource(const CViewSource&) = delete;
    CViewSource& operator=(const CViewSource&) = delete;

  private:
    CHiveView& m_view;
};

// A hive that is replaced, or a stand-in that a writer makes obsolete, more often than this while one call looks at it.
constexpr int kAttempts = 20;

}  // namespace

bool CHive::CStandInTag::operator==(const CStandInTag& other) const noexcept {
    return counters == other.counters && log == other.log && size == other.size &&
           changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
}

bool CHive::IsOwnBatch() const noexcept {
    return m_batch.load(std::memory_order_relaxed) == CBatch::Current();
}

// The files under the names may not be those that are open. SQLite and the generation cannot tell: both live on in the
// files that were removed.
void CHive::Look() noexcept {
    m_nextLook = CoarseMilliseconds() + kLookInterval;
    CFileIdentity identity;
    if (const DWORD error = IdentifyFile(m_files.database, identity); error && error != ERROR_PATH_NOT_FOUND) {
        m_viewGeneration = 0;  // whoever reads next will see why
        return;
    }
    Adopt(identity);
    if (!m_generation.Identity()) return;
    IdentifyFile(m_files.generation, identity);
    if (identity == m_generation.Identity()) return;
    m_generation.Unmap();
    m_viewGeneration = 0;
}

void CHive::Adopt(const CFileIdentity& identity) noexcept {
    if (identity == m_identity) return;
    if (m_identity) ++m_incarnation;
    m_identity = identity;
    CloseReaders();
    m_generation.Unmap();
    ForgetView();
}

void CHive::ForgetView() noexcept {
    m_view.Reset();
    m_viewGeneration = 0;
    m_viewVersion = kNoVersion;
}

// Both at once: a stand-in takes no locks, but closing its files drops those that SQLite holds through the reader's.
void CHive::CloseReaders() noexcept {
    m_reader.reset();
    m_standIn.reset();
    m_viewVersion = kNoVersion;
}

// A writer is between its two counters, or died there, or there is no generation at all.
bool CHive::IsCurrentByVersion() noexcept {
    if (!m_reader || m_viewVersion == kNoVersion) return false;
    const CGenerationCounters before = m_generation.Read();
    std::int64_t version = 0;
    if (m_reader->ReadDataVersion(version) != ERROR_SUCCESS || version != m_viewVersion) return false;
    m_viewGeneration = before.Settled();
    return true;
}

DWORD CHive::ReadRows(const Resolver& resolve) {
    const bool isCurrent = m_viewGeneration != 0 && m_viewGeneration == m_generation.Begun();
    if (!isCurrent && IsCurrentByVersion()) {
        const DWORD result = resolve(m_view);
        if (result != kRowsWanted) return result;
    }
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (const DWORD error = Attach()) return error;
        if (!m_identity) {
            m_view.BecomeEmpty();
            return resolve(m_view);
        }
        const DWORD result = ReadTransaction(resolve);
        if (m_reader->IndexState() == CHiveDatabase::Index::Usable) {
            if (!m_standIn) return result;
            // A writer came, and the index is whole again.
            CloseReaders();
            ForgetView();
            continue;
        }
        // The index may have been torn only while it was looked at.
        DWORD fromStandIn = ERROR_SUCCESS;
        if (attempt > 0 && ReadFromStandIn(resolve, fromStandIn)) return fromStandIn;
    }
    return ERROR_BUSY;
}

// Finds out what lies under the hive's name now, and has a connection to it unless there is nothing.
DWORD CHive::Attach() {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        CFileIdentity identity;
        if (const DWORD error = IdentifyFile(m_files.database, identity); error && error != ERROR_PATH_NOT_FOUND) {
            return error;
        }
        Adopt(identity);
        if (!m_identity || m_reader) break;
        if (m_identity == m_lostFile) return ERROR_REGISTRY_IO_FAILED;
        if (const DWORD error = CHiveDatabase::Open(m_files.database, CHiveDatabase::Use::Read, m_reader)) return error;
        IdentifyFile(m_files.database, identity);
        if (identity == m_identity) break;
    }
    if (m_identity && !m_generation.Identity()) m_generation.MapForReading(m_files);
    return ERROR_SUCCESS;
}

// The order decides: counters, snapshot, counters. A commit that the snapshot lacks raised `begun` behind the first
// look or will; one that the view lacks and the snapshot has raised it before the second.
DWORD CHive::ReadTransaction(const Resolver& resolve) {
    const CGenerationCounters before = m_generation.Read();
    const CReadTransaction transaction(*m_reader);
    if (const DWORD error = transaction.Error()) return error;
    std::int64_t version = 0;
    if (const DWORD error = m_reader->ReadDataVersion(version)) return error;
    if (const DWORD error = m_reader->Identify()) return error;
    const bool sameGeneration = m_viewGeneration != 0 && m_viewGeneration == m_generation.Begun();
    if (!sameGeneration && version != m_viewVersion) m_view.Reset();
    m_viewVersion = version;
    m_viewGeneration = before.Settled();
    const CViewSource source(m_view, *m_reader);
    return resolve(m_view);
}

CHive::CStandInTag CHive::StandInTag() const noexcept {
    CStandInTag tag;
    tag.counters = m_generation.Read();
    struct stat status;
    if (stat(m_files.log.c_str(), &status) == 0) {
        tag.log = {status.st_dev, status.st_ino};
        tag.size = status.st_size;
        tag.changed = status.st_mtim;
    }
    return tag;
}

// A process without write permission can neither mend a torn index nor make one that is missing. It reads with an index
// of its own then, without locks, and believes what it read if the shared one is found unusable before and after: a
// writer would have had to mend it first.
bool CHive::ReadFromStandIn(const Resolver& resolve, DWORD& result) {
    const CStandInTag tag = StandInTag();
    if (!m_standIn || tag != m_standInTag) {
        CloseReaders();
        ForgetView();
        const auto use = tag.log ? CHiveDatabase::Use::StandIn : CHiveDatabase::Use::StandInWithoutLog;
        result = CHiveDatabase::Open(m_files.database, use, m_standIn);
        if (result) return true;
        m_standInTag = tag;
        result = CHiveDatabase::Open(m_files.database, CHiveDatabase::Use::Read, m_reader);
        if (result) return true;
    }
    {
        const CReadTransaction transaction(*m_standIn);
        result = transaction.Error();
        if (!result) result = m_standIn->Identify();
        if (!result) {
            const CViewSource source(m_view, *m_standIn);
            result = resolve(m_view);
        }
    }
    m_reader->ForgetFailure();
    std::int64_t version = 0;
    m_reader->ReadDataVersion(version);
    const CHiveDatabase::Index index = m_reader->IndexState();
    if (index != CHiveDatabase::Index::Usable && StandInTag() == tag) {
        // Torn, with nobody writing: the counters may be unequal because of that writer, and it is dead.
        m_viewGeneration = index == CHiveDatabase::Index::Torn ? tag.counters.begun : tag.counters.Settled();
        return true;
    }
    CloseReaders();
    ForgetView();
    return false;
}

DWORD CHive::ReadInBatch(const Resolver& resolve) {
    const CViewSource source(m_batchView, *m_writer);
    return resolve(m_batchView);
}
