// The store's way to the cache file and back.
//
// Both open the file for themselves alone, so that a reader never sees half of a writer's work, and a writer that is
// killed leaves a file that the next reader refuses: it cuts the file first and writes in place. A file that would be
// written as it is already is left alone, and at no risk.
#include <algorithm>
#include <vector>

#include "cache/CacheFile.h"
#include "module/Failure.h"
#include "module/FileHandle.h"
#include "store/ServerInfo.h"

namespace {

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr std::size_t kBlock = 64 * 1024;

// Also where the system has no error to tell: the result is 0 then.
[[noreturn]] void RaiseLastError() {
    throw _com_error(HRESULT_FROM_WIN32(GetLastError()));
}

CFileHandle OpenAlone(const wstr& name, DWORD disposition) noexcept {
    return CFileHandle(CreateFileW(name.c_str(), kReadWrite, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

void MoveToStart(const CFileHandle& file) {
    if (SetFilePointer(file.Get(), 0, nullptr, FILE_BEGIN) == INVALID_SET_FILE_POINTER) RaiseLastError();
}

DWORD ReadUpTo(const CFileHandle& file, void* buffer, DWORD size) {
    DWORD read = 0;
    if (!ReadFile(file.Get(), buffer, size, &read, nullptr)) RaiseLastError();
    return read;
}

void WriteAll(const CFileHandle& file, CDerBytes bytes) {
    if (bytes.size() > MAXDWORD) throw _com_error(HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE));
    DWORD written = 0;
    if (!WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) RaiseLastError();
    if (written != bytes.size()) throw _com_error(HRESULT_FROM_WIN32(ERROR_DISK_FULL));
}

// The body of a file that proved whole. A damaged file is deleted.
void ReadBody(const wstr& name, CCryptBlob& body, OVTraceNS::CTraceScope& scope) {
    CFileHandle file = OpenAlone(name, OPEN_EXISTING);
    if (!file) {
        const DWORD error = GetLastError();
        scope.Print("Cannot open file. May be it does not exist...");
        throw _com_error(HRESULT_FROM_WIN32(error));
    }
    const DWORD size = GetFileSize(file.Get(), nullptr);
    if (size < kSmallestCacheFile || size == INVALID_FILE_SIZE) {
        const DWORD error = GetLastError();
        scope.Print("File size is invalid.");
        throw _com_error(HRESULT_FROM_WIN32(error));
    }
    scope.Print("File size is %d", size);
    MoveToStart(file);
    body.Allocate(size - sizeof(CCacheDigest));
    const DWORD read = ReadUpTo(file, body.Bytes().data(), static_cast<DWORD>(body.Bytes().size()));
    scope.Print("Read size is %d", read);
    CCacheDigest stored = {};
    const std::optional<CCacheDigest> digest = CacheDigestOf(CDerBytes(body.Bytes()).first(read));
    scope.Print("Hash size is %d", ReadUpTo(file, stored.data(), sizeof stored));
    file.Close();
    if (!digest || stored != *digest) {
        DeleteFileW(name.c_str());
        throw _com_error(NTE_BAD_SIGNATURE);
    }
}

// Whether the file, at its start, is these bytes and nothing else.
bool Holds(const CFileHandle& file, CDerBytes body, CDerBytes digest) {
    if (GetFileSize(file.Get(), nullptr) != body.size() + digest.size()) return false;
    std::vector<BYTE> block(std::min<std::size_t>(body.size(), kBlock));
    const auto follow = [&](CDerBytes rest) {
        while (!rest.empty()) {
            const CDerBytes next = rest.first(std::min(rest.size(), block.size()));
            const DWORD read = ReadUpTo(file, block.data(), static_cast<DWORD>(next.size()));
            if (read != next.size() || !std::equal(next.begin(), next.end(), block.begin())) return false;
            rest = rest.subspan(next.size());
        }
        return true;
    };
    return follow(body) && follow(digest);
}

}  // namespace

HRESULT CServerInfo::Load() noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::Load", 0);
    CLockGuard lock(m_lock);
    return AtBoundary(scope, [&]() -> HRESULT {
        CCryptBlob body;
        ReadBody(CacheFileName(), body, scope);
        CCacheReader reader(body.Bytes());
        scope.Print("Count is %d", reader.Count());
        m_machineItems.Clear();
        for (CPolicyItem item; reader.Next(item);) {
            // Arrays stay behind in the file: the first load of the sources reports them as created.
            if (IsCachedItem(item, scope) && item.value.Type() != OV_TYPE_ARRAY) m_machineItems.Insert(std::move(item));
        }
        return S_OK;
    });
}

HRESULT CServerInfo::Save() noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::Save", 0);
    CLockGuard lock(m_lock);
    return AtBoundary(scope, [&]() -> HRESULT {
        const wstr name = CacheFileName();
        if (m_machineItems.IsEmpty()) {
            DeleteFileW(name.c_str());
            return S_FALSE;
        }
        CFileHandle file = OpenAlone(name, OPEN_EXISTING);
        const bool isNew = !file;
        if (isNew) {
            HANDLE made = INVALID_HANDLE_VALUE;
            RaiseIfFailed(Create(name.c_str(), &made));
            file = CFileHandle(made);
        }
        const CDerWriter body = EncodeCacheBody(m_machineItems, scope);
        const std::optional<CCacheDigest> digest = CacheDigestOf(body.Written());
        if (!isNew) {
            if (digest && Holds(file, body.Written(), *digest)) return S_OK;
            file.Close();
            file = OpenAlone(name, TRUNCATE_EXISTING);
            if (!file) RaiseLastError();
        }
        MoveToStart(file);
        WriteAll(file, body.Written());
        scope.Print("Blob size is %d", static_cast<DWORD>(body.Size()));
        if (!digest) throw _com_error(NTE_BAD_SIGNATURE);
        WriteAll(file, *digest);
        scope.Print("Hash size is %d", static_cast<DWORD>(digest->size()));
        FlushFileBuffers(file.Get());
        return S_OK;
    });
}

HRESULT CServerInfo::Create(LPCWSTR fileName, HANDLE* file) noexcept {
    OVTraceNS::CTraceScope scope("CServerInfo::Create", 0);
    CLockGuard lock(m_lock);
    return AtBoundary(scope, [&]() -> HRESULT {
        CSecurityDescriptor security;
        RaiseIfFailed(security.InitializeFromProcessToken(false));
        RaiseIfFailed(security.AddAllowedAce(LocalSystemSid(), FILE_ALL_ACCESS));
        RaiseIfFailed(security.AddAllowedAce(AdministratorsSid(), FILE_ALL_ACCESS));
        SECURITY_ATTRIBUTES attributes = {sizeof attributes, security.Get(), TRUE};
        CFileHandle made(
            CreateFileW(fileName, kReadWrite, 0, &attributes, CREATE_ALWAYS, FILE_ATTRIBUTE_HIDDEN, nullptr));
        if (!made) RaiseLastError();
        *file = made.Detach();
        return S_OK;
    });
}
