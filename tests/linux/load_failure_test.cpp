// A load that runs out of memory at each of its allocations in turn.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <set>

#include "support/Recorder.h"
#include "support/Registry.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"
#include "support/Writer.h"

namespace {

// How many allocations of this thread still succeed; below 0 all do.
thread_local long allocationsLeft = -1;
// Whether one that failed is the only one.
thread_local bool failsOnce = false;

void* Allocate(std::size_t size, std::size_t alignment) {
    if (allocationsLeft == 0) {
        if (failsOnce) allocationsLeft = -1;
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0) --allocationsLeft;
    const std::size_t rounded = (std::max<std::size_t>(size, 1) + alignment - 1) / alignment * alignment;
    void* block = std::aligned_alloc(alignment, rounded);
    if (!block) throw std::bad_alloc();
    return block;
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return Allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return Allocate(size, alignof(std::max_align_t));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}

namespace {

using namespace testreg;

constexpr LPCWSTR kPolicy = W("SOFTWARE\\Policies\\Orvantis");
constexpr DWORD kItems = 12;

class LoadFailure : public RootTest {
  protected:
    static wstr NameOf(DWORD i) { return W("Value") + wstr(1, static_cast<WCHAR>(W('A') + i)); }
    static void Put(DWORD add) {
        for (DWORD i = 0; i < kItems; ++i) PutDword(kPolicy, NameOf(i).c_str(), i + add);
    }
    static void ExpectAll(const CTestInstance& object, DWORD add) {
        for (DWORD i = 0; i < kItems; ++i) {
            DWORD number = 0;
            EXPECT_EQ(object->GetItemLong(NameOf(i).c_str(), &number), S_OK);
            EXPECT_EQ(number, i + add);
        }
    }
};

TEST_F(LoadFailure, LeavesTheObjectUsableAndTheNextLoadRight) {
    Put(0);
    CRecorder recorder;
    CTestInstance object;
    ExpectAll(object, 0);
    DWORD cookie = 0;
    ASSERT_EQ(object->RegisterNotification(W(""), &recorder, &cookie), S_OK);
    bool ranOut = true;
    for (long allowed = 0; ranOut; ++allowed) {
        SCOPED_TRACE(allowed);
        ASSERT_LT(allowed, 5'000);
        const auto round = static_cast<DWORD>(allowed) + 1;
        Put(round);
        allocationsLeft = allowed;
        StoreDoor::LoadAndNotify(*object);
        ranOut = allocationsLeft == 0;
        allocationsLeft = -1;
        EXPECT_EQ(object->GetInfo(0, nullptr), S_OK);
        StoreDoor::LoadAndNotify(*object);
        ExpectAll(object, round);
    }
    EXPECT_EQ(object->UnregisterNotification(cookie), S_OK);
}

TEST_F(LoadFailure, OfTheFirstQueryIsMadeGoodByTheSecond) {
    Put(0);
    bool ranOut = true;
    for (long allowed = 0; ranOut; ++allowed) {
        SCOPED_TRACE(allowed);
        ASSERT_LT(allowed, 5'000);
        CTestInstance object;
        allocationsLeft = allowed;
        const HRESULT hr = object->GetInfo(0, nullptr);
        ranOut = allocationsLeft == 0;
        allocationsLeft = -1;
        EXPECT_TRUE(hr == S_OK || FAILED(hr));
        StoreDoor::LoadAndNotify(*object);
        ExpectAll(object, 0);
    }
}

// A write that runs out of memory at each of its allocations in turn: a failure after the change is logged as one, and
// none before it is logged at all.
class WriteFailure : public CWriterFixture {};

TEST_F(WriteFailure, IsLoggedOnceSomethingHasChanged) {
    CPolicyValue masks;
    masks.SetNumber(OV_TYPE_ARRAY, 0);
    CPolicyValue mask;
    std::set<std::string> seen;
    bool ranOut = true;
    for (long allowed = 0; ranOut; ++allowed) {
        SCOPED_TRACE(allowed);
        ASSERT_LT(allowed, 5'000);
        mask.SetNumber(OV_TYPE_QWORD, static_cast<ULONGLONG>(allowed) + 1);
        masks.Clear();
        masks.Append(mask);
        Events();
        allocationsLeft = allowed;
        failsOnce = true;
        const HRESULT hr = m_object->SetItem(W("LogonPolicy"), &masks.Raw());
        ranOut = allocationsLeft == -1;
        allocationsLeft = -1;
        failsOnce = false;
        const std::vector<std::string> events = Events();
        ASSERT_LE(events.size(), 1u);
        if (!events.empty()) seen.insert(events[0]);
        if (!events.empty()) {
            EXPECT_EQ(events[0].starts_with("8110040A"), FAILED(hr)) << events[0];
        }
    }
    EXPECT_TRUE(seen.contains("0110040B LogonPolicy | {...} | {...}"));
    EXPECT_TRUE(seen.contains("8110040A LogonPolicy | {...} | {...} | an unexpected failure (0x8000FFFF)"));
}

}  // namespace
