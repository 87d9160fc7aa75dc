// A trace file between processes, and on a disk that is full.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "../diagnostics/DecodeTrace.h"
#include "diagnostics/TraceScope.h"
#include "linux/Process.h"
#include "support/ChildRole.h"
#include "support/Document.h"
#include "support/Registry.h"
#include "support/TestRoot.h"

namespace {

using namespace testreg;
using OVTraceNS::CTraceScope;

constexpr LPCWSTR kTracing = W("SOFTWARE\\Orvantis\\Tracing");

// ROOT COUNT [BYTES]: enters and leaves so many scopes, on a disk on which a file cannot be longer than that. 0 when
// nothing of it was noticed.
int Tracer(const std::vector<std::string>& arguments) {
    OvSetRoot(arguments[0].c_str());
    if (arguments.size() > 2) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlim_t most = std::stoul(arguments[2]);
        const rlimit limit = {most, most};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    for (int i = 0; i < std::stoi(arguments[1]); ++i) {
        SetLastError(77);
        CTraceScope scope("work", 0);
        scope.Print("%d of %d", i, GetCurrentProcessId());
        if (GetLastError() != 77) return 1;
    }
    return 0;
}
const CChildRole tracerRole("tracer", Tracer);

class TraceProcesses : public RootTest {
  protected:
    void SetUp() override {
        PutDword(kTracing, W("DoTrace"), 1);
        PutDword(kTracing, W("NewFileAlways"), 0);
        PutString(kTracing, W("FileName"), WidePath(m_root.Path() / "t.trc3"));
    }
    std::string File() const { return (m_root.Path() / "t.trc3").string(); }
    std::string Root() const { return m_root.Path().string(); }
};

TEST_F(TraceProcesses, SeveralThatShareAFileLoseNothing) {
    constexpr int kCount = 2000;
    ASSERT_EQ(CProcess("tracer", {Root(), "1"}).Wait(), 0);
    {
        CProcess first("tracer", {Root(), std::to_string(kCount)}), second("tracer", {Root(), std::to_string(kCount)});
        EXPECT_EQ(first.Wait(), 0);
        EXPECT_EQ(second.Wait(), 0);
    }
    const DecodedTrace trace = DecodeTrace(File());
    EXPECT_TRUE(trace.whole);
    int entered = 0, left = 0, told = 0, reopened = 0;
    for (const DecodedRecord& record : trace.records) {
        entered += record.tag == '>';
        left += record.tag == '<';
        told += record.tag == 'U';
        reopened += record.tag == 'N';
        ASSERT_NE(std::string("tT><UN").find(record.tag), std::string::npos);
    }
    EXPECT_EQ(entered, 2 * kCount + 1);
    EXPECT_EQ(left, 2 * kCount + 1);
    EXPECT_EQ(told, 2 * kCount + 1);
    EXPECT_EQ(reopened, 2);
}

TEST_F(TraceProcesses, AFullDiskIsNotNoticed) {
    ASSERT_EQ(CProcess("tracer", {Root(), "500", "3000"}).Wait(), 0);
    EXPECT_EQ(std::filesystem::file_size(File()), 3000u);
    EXPECT_GT(DecodeTrace(File()).records.size(), 50u) << "what there was room for";
}

}  // namespace
