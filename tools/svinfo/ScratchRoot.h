// CScratchRoot: an empty computer that this process works on for a while, and that is gone afterwards.
#pragma once

#include <filesystem>
#include <string>

class CScratchRoot {
  public:
    // Throws CCommandFailure when it cannot be made.
    CScratchRoot();
    ~CScratchRoot();
    CScratchRoot(const CScratchRoot&) = delete;
    CScratchRoot& operator=(const CScratchRoot&) = delete;

  private:
    std::string m_before;  // the root in force; empty where that is the system's own registry
    std::filesystem::path m_folder;
};
