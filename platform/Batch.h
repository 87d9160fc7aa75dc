// The writes of one thread that belong together: one transaction for each hive that they touch.
//
// A hive joins with the first write to it; from then on nobody else writes there, and only this thread sees what it
// wrote. Threads: an object belongs to its thread. One that is still open when its thread ends is taken back.
#pragma once

#include <vector>

#include "win/types.h"

class CHive;

class CBatch {
  public:
    CBatch();
    ~CBatch();
    CBatch(const CBatch&) = delete;
    CBatch& operator=(const CBatch&) = delete;

    // Null when the thread is in none.
    static CBatch* Current() noexcept;
    // ERROR_BUSY (170) when the thread is in one already.
    static DWORD Begin();
    // ERROR_INVALID_PARAMETER (87) when it is in none. A commit after a write that failed beneath is none: everything
    // is taken back, and the result is that of the write.
    static DWORD End(bool commit);
    // In the child of a fork the batch is the parent's.
    static void ForgetInChild() noexcept;

    void Reserve() { m_hives.reserve(m_hives.size() + 1); }
    // Needs a reserved place.
    void Join(CHive& hive) noexcept { m_hives.push_back(&hive); }
    void Fail(DWORD error) noexcept { m_failure = m_failure ? m_failure : error; }
    DWORD Failure() const noexcept { return m_failure; }

  private:
    DWORD Close(bool commit) noexcept;

    std::vector<CHive*> m_hives;
    DWORD m_failure = ERROR_SUCCESS;
};
