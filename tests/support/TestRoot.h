// A computer of a test's own: every case works on a root that was made for it and goes with it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Platform.h"

// Makes an empty root, points the process at it, and removes it at the end. The process is in the root's folder for so
// long: what components leave in the folder they are in goes with it.
class CTestRoot {
  public:
    CTestRoot();
    ~CTestRoot();
    CTestRoot(const CTestRoot&) = delete;
    CTestRoot& operator=(const CTestRoot&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

  private:
    void Remove() const;

    std::filesystem::path m_before;
    std::filesystem::path m_path;
};

// The base of every fixture that touches the registry.
class RootTest : public testing::Test {
  protected:
    CTestRoot m_root;
};
