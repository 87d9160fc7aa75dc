// The files of one hive: where they lie, who may read them, and how they come into being.
//
//     machine.db                 the database; its name appears only when it is complete
//     machine.db-wal, -shm       SQLite's log and its index. They stay when the last process is gone: a reader without
//                                write permission could not make them, and reads nothing without them
//     machine.db-gen             the generation (HiveGeneration.h)
//     machine.db-new             a hive being made, locked by whoever makes it
//
// Access   the machine's hive is 0644 in folders of 0755. A user's hive is its owner's alone; when root makes it for
//          another user, that user may read it, by an entry in each file's access list. Where the file system has no
//          such lists it stays root's.
// Fails    with the errors of HiveError.h.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>

#include "win/types.h"

struct CFileIdentity {
    dev_t device = 0;
    ino_t file = 0;

    bool operator==(const CFileIdentity&) const = default;
    explicit operator bool() const noexcept { return file != 0; }
};

struct CHiveFiles {
    CHiveFiles() = default;
    CHiveFiles(std::string folderPath, const std::string& name)
        : folder(std::move(folderPath)),
          database(folder + "/" + name + ".db"),
          log(database + "-wal"),
          index(database + "-shm"),
          generation(database + "-gen") {}

    std::string folder;
    std::string database;
    std::string log;
    std::string index;
    std::string generation;
    bool isPrivate = false;
    std::optional<uid_t> reader;  // whom a private hive is about
};

// Opens nothing: closing a file drops the locks that SQLite has on it. ERROR_PATH_NOT_FOUND (3) with an empty identity
// when nothing is there.
DWORD IdentifyFile(const std::string& path, CFileIdentity& identity) noexcept;

// Makes folder, log, index, generation and database, unless somebody else made the database meanwhile.
DWORD MakeHive(const CHiveFiles& files);

// Writes `content` to a file of the hive under a temporary name, with the hive's access, and puts it in place.
DWORD PutHiveFile(const CHiveFiles& files, const std::string& path, const void* content, std::size_t size);

// Gives the reader of a private hive the access to its other files, which SQLite may have made anew. A failure costs
// the reader the hive, not the caller.
void RepairAccess(const CHiveFiles& files) noexcept;

// Whether this process may write to the hive, as the system sees its effective identity.
bool MayWrite(const CHiveFiles& files) noexcept;
