#include "svinfo/ScratchRoot.h"

#include <system_error>

#include "Platform.h"
#include "module/RegistryKey.h"
#include "security/CoreKey.h"
#include "svinfo/Failure.h"
#include "svinfo/FileIo.h"
#include "svinfo/Text.h"

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

DWORD PutBinDir(const fs::path& folder) {
    CRegistryKey key;
    LONG error = key.Create(HKEY_LOCAL_MACHINE, kCoreKey, nullptr, 0, KEY_SET_VALUE, nullptr, nullptr);
    if (!error) error = key.SetString(W("BinDir"), WideArgument(Utf8(folder), "the temporary folder").c_str());
    return static_cast<DWORD>(error);
}

}  // namespace

CScratchRoot::CScratchRoot() : m_before(OvRoot()), m_folder(MakeFolder()) {
    DWORD error = OvSetRoot(Utf8(m_folder).c_str());
    // What an object on it looks for is looked for there, and not in the folder that the tool was started in.
    if (!error) error = PutBinDir(m_folder);
    if (error) {
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
