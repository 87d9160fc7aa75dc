#include "svinfo/ScratchRoot.h"

#include <random>
#include <system_error>

#include "Platform.h"
#include "svinfo/Failure.h"

namespace fs = std::filesystem;

namespace {

std::string Utf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// A folder that was not there before, for nobody but us.
fs::path MakeFolder() {
    std::random_device random;
    std::error_code error;
    const fs::path parent = fs::temp_directory_path(error);
    for (int attempt = 0; !error && attempt < 16; ++attempt) {
        fs::path folder = parent / ("svinfo-" + std::to_string(random()));
        if (!fs::create_directory(folder, error)) continue;
        fs::permissions(folder, fs::perms::owner_all, error);
        return folder;
    }
    throw FailureOf("make a folder for temporary files", error ? ResultOfError(error) : E_FAIL);
}

}  // namespace

CScratchRoot::CScratchRoot() : m_before(OvRoot()), m_folder(MakeFolder()) {
    if (const DWORD error = OvSetRoot(Utf8(m_folder).c_str())) {
        std::error_code ignored;
        fs::remove_all(m_folder, ignored);
        throw FailureOf("make a registry for temporary use", HRESULT_FROM_WIN32(error));
    }
}

CScratchRoot::~CScratchRoot() {
    OvForgetRoot(Utf8(m_folder).c_str());
    if (!m_before.empty()) OvSetRoot(m_before.c_str());
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}
