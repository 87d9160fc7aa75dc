#include "support/TestRoot.h"

#include <atomic>

namespace fs = std::filesystem;

namespace {

std::string Utf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

}  // namespace

CTestRoot::CTestRoot() {
    static std::atomic<unsigned> next{0};
    m_path =
        fs::temp_directory_path() / ("ovtest-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(next++));
    Remove();  // a run that was killed may have left one of the same number
    fs::create_directories(m_path);
    m_before = fs::current_path();
    fs::current_path(m_path);
    EXPECT_EQ(OvSetRoot(Utf8(m_path).c_str()), static_cast<DWORD>(ERROR_SUCCESS));
}

CTestRoot::~CTestRoot() {
    fs::current_path(m_before);
    Remove();
}

void CTestRoot::Remove() const {
    EXPECT_EQ(OvForgetRoot(Utf8(m_path).c_str()), static_cast<DWORD>(ERROR_SUCCESS));
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}
