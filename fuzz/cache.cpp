// Items and cache files, of whatever bytes: 'I' an item, 'F' a file as it stands, all else a body under a good digest.
//
// Nothing may be read outside of the bytes, what was decoded must survive being written and read again, and a store
// must be what stores are.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "cache/CacheFile.h"
#include "cache/ValueEncoding.h"
#include "security/CoreKey.h"
#include "support/StoreDoor.h"

namespace {

namespace fs = std::filesystem;

fs::path theFolder;

void Must(bool holds) {
    if (!holds) std::abort();
}

bool IsSame(CDerBytes a, CDerBytes b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

void AsItem(CDerBytes bytes) {
    CPolicyItem item, again;
    CDecodeBudget budgets[3];
    try {
        DecodeItem(bytes, item, budgets[0]);
    } catch (const _com_error&) {
        return;  // a time that is none
    }
    CDerWriter written, rewritten, last;
    EncodeItem(item, written);
    DecodeItem(written.Written(), again, budgets[1]);
    Must(again.name == item.name && again.value.Type() == item.value.Type());
    // What decoding bends stays bent: the second time around nothing changes any more.
    EncodeItem(again, rewritten);
    DecodeItem(rewritten.Written(), item, budgets[2]);
    EncodeItem(item, last);
    Must(IsSame(last.Written(), rewritten.Written()));
}

void AsFile(CDerBytes bytes, bool withDigest) {
    std::FILE* const file = std::fopen((theFolder / "svinfo.cch").c_str(), "wb");
    Must(file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size());
    if (withDigest) {
        const CCacheDigest digest = CacheDigestOf(bytes).value();
        Must(std::fwrite(digest.data(), 1, digest.size(), file) == digest.size());
    }
    std::fclose(file);
    static CTestInstance& object = *new CTestInstance;
    CPolicyMap& store = StoreDoor::Items(*object);
    const std::size_t before = store.Size();
    const HRESULT hr = StoreDoor::Load(*object);
    if (hr == NTE_BAD_SIGNATURE) Must(store.Size() == before);
    OVTraceNS::CTraceScope scope("fuzz", 0);
    const CDerWriter body = EncodeCacheBody(store, scope);
    CCacheReader reader(body.Written());
    Must(reader.Count() == store.Size());
    CPolicyItem item;
    for (std::size_t i = 0; reader.Next(item); ++i) {
        const DWORD type = item.value.Type();
        Must(type == OV_TYPE_STRING || type == OV_TYPE_DWORD || type == OV_TYPE_QWORD);
        Must(item.name == store.At(i).name && ItemsEqual(item, store.At(i)));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    theFolder = fs::path(fs::exists("/dev/shm") ? "/dev/shm" : "/tmp") / ("ovfuzz-" + std::to_string(getpid()));
    fs::create_directory(theFolder);
    std::atexit([] { fs::remove_all(theFolder); });
    OvSetRoot(theFolder.c_str());
    CRegistryKey key = OpenCoreKey(KEY_ALL_ACCESS);
    const std::string path = theFolder.string();
    Must(key.SetString(W("BinDir"), wstr(path.begin(), path.end()).c_str()) == ERROR_SUCCESS);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size == 0) return 0;
    const CDerBytes bytes(data + 1, size - 1);
    data[0] == 'I' ? AsItem(bytes) : AsFile(bytes, data[0] != 'F');
    return 0;
}
