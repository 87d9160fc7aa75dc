// The hives of this computer, and the folder that holds them.
//
//     <root>/machine.db            HKEY_LOCAL_MACHINE
//     <root>/users/<SID>.db        one for each user who has policy
//
// The root is what OvSetRoot said last, else $OV_ROOT, which privileged programs ignore, else /var/lib/orvantis.
//
// Life     made at first use and never destroyed: other threads may still read while the process ends. Connections stay
//          open then; the system closes them, and SQLite is made for that.
// Threads  a lock of its own, taken before those of the hives and never under them.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Hive.h"

class CHives {
  public:
    static CHives& Get();

    CHive& Machine() noexcept { return m_machine; }
    // HKEY_USERS: reads as a root without keys; its subkeys are the hives that List tells.
    CHive& Users() noexcept { return m_users; }
    // The hive of a user, whether there is a file for it or not. `sid` has the form of a SID.
    CHive& User(std::string_view sid);

    // The SIDs of the hives that exist, in the order of an enumeration.
    DWORD List(std::vector<std::string>& sids);

    // ERROR_BUSY (170) while a thread is in a batch.
    DWORD SetRoot(std::string path);
    // Valid until the next SetRoot.
    const char* Root();

    void EnterBatch();
    void LeaveBatch() noexcept;

  private:
    CHives();

    template <class Visit>
    void ForEach(Visit visit);
    bool RestOldest() noexcept;
    CHiveFiles UserFiles(std::string_view sid) const;

    static void PrepareFork();
    static void EndForkInParent();
    static void EndForkInChild();

    std::mutex m_lock;
    int m_batches = 0;                                                       // guarded by m_lock: threads in one
    std::string m_root;                                                      // guarded by m_lock
    std::map<std::string, std::unique_ptr<CHive>, std::less<>> m_userHives;  // guarded by m_lock
    CHive m_machine;
    CHive m_users;
};
