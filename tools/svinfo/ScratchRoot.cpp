#include "svinfo/ScratchRoot.h"

#include <system_error>

#include "Platform.h"
#include "svinfo/Failure.h"
#include "svinfo/FileIo.h"

namespace fs = std::filesystem;

namespace {

std::string Utf8(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

fs::path MakeFolder() {
    std::error_code error;
    const fs::path parent = fs::temp_directory_path(error);
    const fs::path folder = error ? fs::path() : MakePrivateFolder(parent / "svinfo", error);
    if (error) throw FailureOf("make a folder for temporary files", ResultOfError(error));
    return folder;
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
