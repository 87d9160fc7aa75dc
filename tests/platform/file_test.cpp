// Files, and MD5.
#include <filesystem>
#include <fstream>

#include "Platform.h"
#include "support/Document.h"
#include "support/TestRoot.h"
#include "support/Vectors.h"

namespace {

namespace fs = std::filesystem;

class Files : public RootTest {
  protected:
    wstr Path(const char* name) const { return WidePath(m_root.Path() / name); }
    static HANDLE Open(const wstr& path, DWORD disposition, DWORD attributes = FILE_ATTRIBUTE_NORMAL,
                       DWORD access = GENERIC_READ | GENERIC_WRITE) {
        SetLastError(0xDEAD);
        return CreateFileW(path.c_str(), access, 0, nullptr, disposition, attributes, nullptr);
    }
    // The last error of an opening that fails, 0 for one that does not.
    static DWORD ErrorOf(const wstr& path, DWORD disposition) {
        const HANDLE file = Open(path, disposition);
        if (file == INVALID_HANDLE_VALUE) return GetLastError();
        CloseHandle(file);
        return 0;
    }
    void Make(const char* name, const std::string& content) const { std::ofstream(m_root.Path() / name) << content; }
};

TEST_F(Files, WhatCannotBeOpened) {
    EXPECT_EQ(ErrorOf(Path("none"), OPEN_EXISTING), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(ErrorOf(Path("none"), TRUNCATE_EXISTING), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(ErrorOf(Path("none/file"), OPEN_EXISTING), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(ErrorOf(Path("none/file"), CREATE_ALWAYS), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(ErrorOf(W(""), OPEN_EXISTING), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(ErrorOf(WidePath(m_root.Path()), OPEN_EXISTING), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(Files, OneHandleAtATime) {
    const wstr path = Path("file");
    const HANDLE first = Open(path, CREATE_ALWAYS, FILE_ATTRIBUTE_HIDDEN);
    ASSERT_NE(first, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(ErrorOf(path, OPEN_EXISTING), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(ErrorOf(path, TRUNCATE_EXISTING), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(DeleteFileW(path.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_TRUE(CloseHandle(first));
    const HANDLE again = Open(path, CREATE_ALWAYS, FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    CloseHandle(again);
    EXPECT_TRUE(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(ErrorOf(path, TRUNCATE_EXISTING), 0u);
    EXPECT_TRUE(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_HIDDEN) << "cut, it keeps what it is";
    EXPECT_TRUE(DeleteFileW(path.c_str()));
    EXPECT_FALSE(DeleteFileW(path.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    fs::create_directory(m_root.Path() / "folder");
    EXPECT_FALSE(DeleteFileW(Path("folder").c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(Files, ReadAndWritten) {
    Make("file", "0123456789");
    const HANDLE file = Open(Path("file"), OPEN_EXISTING);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD high = 7, moved = 0;
    EXPECT_EQ(GetFileSize(file, &high), 10u);
    EXPECT_EQ(high, 0u);
    char bytes[16] = {};
    EXPECT_TRUE(ReadFile(file, bytes, 4, &moved, nullptr));
    EXPECT_EQ(std::string(bytes, moved), "0123");
    EXPECT_TRUE(WriteFile(file, "xy", 2, &moved, nullptr));
    EXPECT_EQ(moved, 2u);
    EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_BEGIN), 0u);
    EXPECT_TRUE(ReadFile(file, bytes, sizeof bytes, &moved, nullptr));
    EXPECT_EQ(std::string(bytes, moved), "0123xy6789");
    EXPECT_TRUE(ReadFile(file, bytes, 1, &moved, nullptr));
    EXPECT_EQ(moved, 0u) << "at the end";
    EXPECT_TRUE(FlushFileBuffers(file));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_FALSE(ReadFile(file, bytes, 1, &moved, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    const HANDLE reader = Open(Path("file"), OPEN_EXISTING, 0, GENERIC_READ);
    EXPECT_FALSE(WriteFile(reader, "x", 1, &moved, nullptr));
    CloseHandle(reader);
}

TEST(Digest, Recorded) {
    for (const vectors::Row& row : vectors::LoadWhere("der.jsonl", "op", "md5")) {
        std::string in = row["in"];
        in = in.starts_with("fill:") ? std::string(std::stoul(in.substr(5)), '\x5A') : vectors::Bytes(row["in"]);
        HCRYPTPROV provider = 0;
        HCRYPTHASH hash = 0;
        ASSERT_TRUE(CryptAcquireContextW(&provider, nullptr, MS_DEF_PROV_W, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
        ASSERT_TRUE(CryptCreateHash(provider, CALG_MD5, 0, 0, &hash));
        // In two parts: where they meet does not matter.
        const auto* bytes = reinterpret_cast<const BYTE*>(in.data());
        const DWORD half = static_cast<DWORD>(in.size() / 2);
        EXPECT_TRUE(CryptHashData(hash, bytes, half, 0));
        EXPECT_TRUE(CryptHashData(hash, bytes + half, static_cast<DWORD>(in.size()) - half, 0));
        BYTE digest[16];
        DWORD size = 15;
        EXPECT_FALSE(CryptGetHashParam(hash, HP_HASHVAL, digest, &size, 0));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MORE_DATA));
        EXPECT_EQ(size, 16u);
        ASSERT_TRUE(CryptGetHashParam(hash, HP_HASHVAL, digest, &size, 0));
        EXPECT_EQ(std::string(digest, digest + size), vectors::Bytes(row["digest"])) << row["id"];
        EXPECT_FALSE(CryptHashData(hash, bytes, 1, 0)) << "it is done";
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_BAD_HASH_STATE));
        EXPECT_TRUE(CryptDestroyHash(hash));
        EXPECT_TRUE(CryptReleaseContext(provider, 0));
    }
}

}  // namespace
