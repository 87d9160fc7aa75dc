// The trace settings: what each value means, when they are read, and which output they choose.
#include "diagnostics/TraceConfig.h"

#include <gtest/gtest.h>

#include "RecordingOutput.h"

namespace {

using namespace OVTraceNS;

class TraceSettings : public TraceTest {
  protected:
    static DWORD FlagsNow() {
        ReadAgain();
        RefreshTraceSettings();
        return theTraceState.flags;
    }

    void List(LPCWSTR subkey, LPCWSTR module) {
        testreg::PutString(wstr(kKey).append(W("\\")).append(subkey).c_str(), module, W("the data is not read"));
    }
};

TEST_F(TraceSettings, FlagsOfValues) {
    struct Value {
        LPCWSTR name;
        DWORD type;
        DWORD data;
    };
    constexpr DWORD kAbsent = kTraceToFile | kNewFileAlways;
    const struct {
        const char* why;
        std::vector<Value> values;
        DWORD expected;
    } kRows[] = {
        {"all absent", {}, kAbsent},
        {"tracing on", {{W("DoTrace"), REG_DWORD, 1}}, kAbsent | kDoTrace},
        {"any number turns it on", {{W("DoTrace"), REG_DWORD, 0x100}}, kAbsent | kDoTrace},
        {"tracing off", {{W("DoTrace"), REG_DWORD, 0}}, kAbsent},
        {"a string is no switch", {{W("DoTrace"), REG_SZ, W('1')}}, kAbsent},
        {"no file", {{W("TraceToFile"), REG_DWORD, 0}}, kNewFileAlways},
        {"a file is 1 and nothing else", {{W("TraceToFile"), REG_DWORD, 2}}, kNewFileAlways},
        {"a file", {{W("TraceToFile"), REG_DWORD, 1}}, kAbsent},
        {"a file by a value of another type", {{W("TraceToFile"), REG_BINARY, 0}}, kAbsent},
        {"append", {{W("NewFileAlways"), REG_DWORD, 0}}, kTraceToFile},
        {"any number asks for a new file", {{W("NewFileAlways"), REG_DWORD, 2}}, kAbsent},
        {"a new file by a value of another type", {{W("NewFileAlways"), REG_BINARY, 0}}, kAbsent},
        {"the log", {{W("DoLog"), REG_DWORD, 5}}, kAbsent | kDoLog},
        {"profiling", {{W("DoProfiling"), REG_DWORD, 1}}, kAbsent | kDoProfiling},
        {"profiling as bytes is off", {{W("DoProfiling"), REG_BINARY, 1}}, kAbsent},
    };
    for (const auto& row : kRows) {
        CTestRoot root;
        Restart();
        testreg::Make(kKey);
        for (const Value& value : row.values) {
            testreg::PutBytes(kKey, value.name, value.type, &value.data, sizeof value.data);
        }
        EXPECT_EQ(FlagsNow(), row.expected) << row.why;
    }
}

TEST_F(TraceSettings, WithoutTheKeyNothingIsSet) {
    EXPECT_EQ(FlagsNow(), 0u);
}

TEST_F(TraceSettings, AreFoundInTheViewOf32BitsWhereTheOtherHasNone) {
    constexpr LPCWSTR k32BitKey = W("SOFTWARE\\Wow6432Node\\Orvantis\\Tracing");
    testreg::PutDword(k32BitKey, W("DoTrace"), 1);
    EXPECT_NE(FlagsNow() & kDoTrace, 0u);
    testreg::Make(kKey);
    EXPECT_EQ(FlagsNow() & kDoTrace, 0u) << "the key of the 64-bit view comes first, though it is empty";
}

TEST_F(TraceSettings, AreReadByTheClock) {
    TraceOn();
    const DWORD before = GetTickCount();
    RefreshTraceSettings();
    const DWORD next = theTraceState.nextCheckTick;
    EXPECT_LE(before + 30000, next);
    EXPECT_LE(next, GetTickCount() + 30000);
    Set(W("DoTrace"), 0);
    { CTraceScope scope("scope", 0); }
    EXPECT_TRUE(theTraceState.Has(kDoTrace)) << "not yet";
    theTraceState.nextCheckTick = before - 1;
    { CTraceScope scope("scope", 0); }
    EXPECT_FALSE(theTraceState.Has(kDoTrace));
}

TEST_F(TraceSettings, VerbosityAndComponentListsAreReadWhenAFlagChanges) {
    TraceOn(5);
    FlagsNow();
    EXPECT_EQ(theTraceState.verbosity, 5);
    Set(W("Verbosity"), 9);
    List(W("Components"), W("Other"));
    FlagsNow();
    EXPECT_EQ(theTraceState.verbosity, 5) << "no flag has changed";
    EXPECT_TRUE(theTraceState.componentEnabled);
    Set(W("DoLog"), 1);
    FlagsNow();
    EXPECT_EQ(theTraceState.verbosity, 9);
    EXPECT_FALSE(theTraceState.componentEnabled);
    testreg::PutString(kKey, W("Verbosity"), W("3"));
    Set(W("DoLog"), 0);
    FlagsNow();
    EXPECT_EQ(theTraceState.verbosity, 0) << "a value of another type";
}

TEST_F(TraceSettings, VerbosityOutlivesTheKey) {
    TraceOn(5);
    FlagsNow();
    CRegistryKey parent;
    ASSERT_EQ(parent.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis"), KEY_ALL_ACCESS), ERROR_SUCCESS);
    ASSERT_EQ(parent.DeleteTree(W("Tracing")), ERROR_SUCCESS);
    EXPECT_EQ(FlagsNow(), 0u);
    EXPECT_EQ(theTraceState.verbosity, 5);
}

TEST_F(TraceSettings, ComponentFilter) {
    const LPCWSTR no = W("ComponentsNOT");
    const LPCWSTR yes = W("Components");
    // The module is the program of the tests until it is told otherwise.
    WCHAR path[1024];
    const wstr_view program(path, GetModuleFileNameW(nullptr, path, 1024));
    wstr self(program.substr(program.find_last_of(W("\\/")) + 1));
    self = self.substr(0, self.find_last_of(W('.')));
    wstr upper = self;
    for (WCHAR& unit : upper) {
        if (unit >= W('a') && unit <= W('z')) unit = static_cast<WCHAR>(unit - 32);
    }
    const struct {
        const char* why;
        std::vector<std::pair<LPCWSTR, wstr>> lists;
        bool enabled;
    } kRows[] = {
        {"no list", {}, true},
        {"excluded", {{no, self}}, false},
        {"excluded in capitals", {{no, upper}}, false},
        {"another one excluded", {{no, W("Other")}}, true},
        {"excluded behind another one", {{no, W("Aaa")}, {no, self}, {no, W("zzz")}}, false},
        {"included", {{yes, self}}, true},
        {"included in capitals", {{yes, W("Other")}, {yes, upper}}, true},
        {"only another one included", {{yes, W("Other")}}, false},
        {"in both lists", {{no, self}, {yes, self}}, true},
        {"excluded, and another one included", {{no, self}, {yes, W("Other")}}, false},
        {"with its extension it is another name", {{yes, self + W(".dll")}}, false},
    };
    for (const auto& row : kRows) {
        CTestRoot root;
        Restart();
        TraceOn();
        for (const auto& [subkey, name] : row.lists) List(subkey, name.c_str());
        FlagsNow();
        EXPECT_EQ(theTraceState.componentEnabled, row.enabled) << row.why;
    }

    CTestRoot root;
    Restart();
    TraceOn();
    testreg::Make(wstr(kKey).append(W("\\Components")).c_str());
    List(no, self.c_str());
    FlagsNow();
    EXPECT_FALSE(theTraceState.componentEnabled) << "an empty list leaves what the other one says";
}

TEST_F(TraceSettings, TheOutputStaysUntilItIsReleased) {
    TraceOn();
    { CTraceScope scope("scope", 0); }
    const COutput* recording = &GetTraceOutput();
    Set(W("TraceToFile"), 0);
    ReadAgain();
    { CTraceScope scope("scope", 0); }
    EXPECT_EQ(&GetTraceOutput(), recording) << "whatever the settings became";
    Told();
    ReleaseTraceOutputs();
    EXPECT_EQ(theTraceState.nextCheckTick, 0u);
    { CTraceScope scope("scope", 0); }
    EXPECT_EQ(Told(), "") << "the new output drops the records";
}

TEST_F(TraceSettings, ALibraryThatIsNotThereIsNoFailure) {
    SetTraceModule(GetModuleHandleW(nullptr));
    OfferHeapDetection(GetModuleHandleW(nullptr));
    TraceOn();
    { CTraceScope scope("scope", 0); }
    EXPECT_EQ(Told(), ">scope <");
}

TEST(TraceProcess, AMutexIsNamedByTheProcessId) {
    WCHAR name[11];
    OVFormat::Format(name, 11, "%u", GetCurrentProcessId());
    HANDLE mutex = CreateMutexW(nullptr, FALSE, name);
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    CloseHandle(mutex);
}

}  // namespace
