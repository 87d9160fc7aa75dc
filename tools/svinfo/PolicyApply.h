// The application of policy files: the least of a policy engine that serves a computer without one.
//
// What an application sets it also writes down, in the hive itself, so that the next one first takes back what is no
// longer wanted. That, the settings and the record are one transaction; keys that an application made go again when
// they are empty.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "Platform.h"
#include "svinfo/PolFile.h"

struct CPolicyCounts {
    std::size_t valuesSet = 0;
    std::size_t valuesDeleted = 0;    // by instructions
    std::size_t valuesTakenBack = 0;  // of the application before, set again or not
};

// A record that was passed over, and why.
struct CPolicyNote {
    std::size_t offset;
    std::string text;
};

// Whether key paths are the same, by the system's rule.
struct CPathLess {
    bool operator()(const wstr& a, const wstr& b) const noexcept;
};

class CPolicyApplication {
  public:
    // `root` with `prefix` in front of each key: HKEY_LOCAL_MACHINE and nothing, or HKEY_USERS and a SID with its
    // separator. Every operation throws CCommandFailure when the registry fails.
    CPolicyApplication(HKEY root, wstr prefix) : m_root(root), m_prefix(std::move(prefix)) {}

    // First: deletes the values that the application before has set.
    void TakeBack();
    // Then each file, in order. Gives what was passed over.
    std::vector<CPolicyNote> Apply(const std::vector<CPolRecord>& records);
    // Last: removes what is empty now, and writes down what was set.
    void Finish();

    const CPolicyCounts& Counts() const noexcept { return m_counts; }

  private:
    using CPaths = std::set<wstr, CPathLess>;

    std::string Carry(const CPolRecord& record);
    std::string Instruct(const CPolRecord& record);
    void CreateKey(const wstr& key);
    void SetValue(const wstr& key, const wstr& name, const CPolRecord& record);
    bool HasValue(const wstr& key, const wstr& name) const;
    bool DeleteValue(const wstr& key, const wstr& name) const;
    void DeleteAllValues(const wstr& key);
    void RemoveIfEmpty(const wstr& key) const;
    wstr Full(const wstr& key) const { return m_prefix + key; }

    HKEY m_root;
    wstr m_prefix;
    CPolicyCounts m_counts;
    CPaths m_before;                // keys that the application before had made
    CPaths m_made;                  // and this one
    CPaths m_touched;               // keys that this one wrote to or asked for, and those above them
    std::vector<CPolRecord> m_set;  // values that this one has set, without their data
};
