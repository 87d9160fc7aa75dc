#include "support/TestRoot.h"

#include <atomic>

namespace fs = std::filesystem;

CTestRoot::CTestRoot() {
    static std::atomic<unsigned> next{0};
    m_path =
        fs::temp_directory_path() / ("ovtest-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(next++));
    fs::remove_all(m_path);
    fs::create_directories(m_path);
    const std::u8string path = m_path.u8string();
    EXPECT_EQ(OvSetRoot(reinterpret_cast<const char*>(path.c_str())), static_cast<DWORD>(ERROR_SUCCESS));
}

CTestRoot::~CTestRoot() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}
