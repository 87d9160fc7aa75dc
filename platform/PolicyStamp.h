// The files by which processes of one root agree about policy:
//
//   <root>/policy/machine.stamp   a number that grows with each signal; watched by every process that registered
//   <root>/policy/machine.lock    the critical section: a file lock, which a dead process cannot keep
//
// and the same with "users" for the policies of users. Both are there for everybody to read, and a lock needs no more;
// writing a stamp is for those who apply policy.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "File.h"

class CPolicyFiles {
  public:
    // Of the root at `root`.
    CPolicyFiles(const std::string& root, bool machine);

    const std::string& Folder() const noexcept { return m_folder; }

    // The stamp's number; 0 where there is none yet.
    std::uint64_t Stamp() const noexcept;
    // When it was written; false where there is none.
    bool StampTime(std::time_t& seconds, int& milliseconds) const noexcept;
    // Makes it another one. A Win32 error.
    DWORD RaiseStamp() const;
    // Waits for the lock and holds it with the file. A Win32 error; ERROR_BUSY (170) when a holder keeps it too long.
    DWORD Lock(CFile& file) const;

  private:
    // Makes it where it is missing and may be made.
    static DWORD OpenOrMake(const std::string& folder, const std::string& path, int access, CFile& file);

    std::string m_folder;
    std::string m_stamp;
    std::string m_lock;
};
