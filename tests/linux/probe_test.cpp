// Memory that cannot be touched, and whose faults are whose.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "Platform.h"
#include "linux/Process.h"
#include "support/ChildRole.h"

namespace {

constexpr std::size_t kPage = 4096;
constexpr UINT_PTR kAll = ~UINT_PTR{0} / 2;

// Two pages of which the second cannot be touched.
class CEdge {
  public:
    CEdge()
        : m_pages(static_cast<BYTE*>(
              mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        mprotect(m_pages + kPage, kPage, PROT_NONE);
    }
    ~CEdge() { munmap(m_pages, 2 * kPage); }
    CEdge(const CEdge&) = delete;
    CEdge& operator=(const CEdge&) = delete;

    BYTE* Before(std::size_t bytes) const noexcept { return m_pages + kPage - bytes; }
    void Protect(int access) const { mprotect(m_pages, kPage, access); }

  private:
    BYTE* m_pages;
};

TEST(Probe, MemoryUpToAnEdge) {
    const CEdge edge;
    const struct {
        const void* memory;
        UINT_PTR size;
        BOOL bad;
    } rows[] = {
        {nullptr, 0, FALSE},
        {nullptr, 1, TRUE},
        {edge.Before(8), 8, FALSE},
        {edge.Before(8), 9, TRUE},
        {edge.Before(kPage), kPage, FALSE},
        {edge.Before(kPage), kPage + 1, TRUE},
        {edge.Before(0), 1, TRUE},
        {edge.Before(0), 0, FALSE},
        {edge.Before(8), kAll, TRUE},
        {reinterpret_cast<void*>(~UINT_PTR{0}), 2, TRUE},
        {reinterpret_cast<void*>(8), 1, TRUE},
    };
    edge.Before(8)[0] = 0xA5;
    for (const auto& row : rows) {
        EXPECT_EQ(IsBadReadPtr(row.memory, row.size), row.bad) << row.memory << " " << row.size;
        EXPECT_EQ(IsBadWritePtr(const_cast<void*>(row.memory), row.size), row.bad) << row.memory << " " << row.size;
    }
    EXPECT_EQ(edge.Before(8)[0], 0xA5) << "which was not changed";
    edge.Protect(PROT_READ);
    EXPECT_FALSE(IsBadReadPtr(edge.Before(8), 8));
    EXPECT_TRUE(IsBadWritePtr(edge.Before(8), 8));
}

// Each length and each place within a block, aligned and odd, with its NUL before the edge and without.
TEST(Probe, TextsUpToAnEdge) {
    const CEdge edge;
    for (std::size_t units = 0; units < 40; ++units) {
        for (std::size_t odd = 0; odd < 2; ++odd) {
            const std::size_t bytes = (units + 1) * sizeof(WCHAR) + odd;
            std::memset(edge.Before(bytes), 0x41, bytes);
            const auto* text = reinterpret_cast<const WCHAR*>(edge.Before(bytes));
            EXPECT_TRUE(IsBadStringPtrW(text, kAll)) << units << " " << odd;
            EXPECT_FALSE(IsBadStringPtrW(text, units + 1)) << "as far as was asked, " << units << " " << odd;
            std::memset(edge.Before(bytes) + units * sizeof(WCHAR), 0, sizeof(WCHAR));
            EXPECT_FALSE(IsBadStringPtrW(text, kAll)) << units << " " << odd;
        }
    }
    EXPECT_TRUE(IsBadStringPtrW(nullptr, 1));
    EXPECT_FALSE(IsBadStringPtrW(nullptr, 0));
}

TEST(Probe, ManyThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            const CEdge edge;
            for (int n = 0; n < 500; ++n) {
                ASSERT_TRUE(IsBadReadPtr(edge.Before(4), 8));
                ASSERT_FALSE(IsBadWritePtr(edge.Before(4), 4));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

volatile sig_atomic_t theFaults, theHostFaults;  // those mended, and whether the host itself is about to make one
CEdge* theEdge;
struct sigaction theOlder;

// The host's own handler: it mends the fault, so that the access works when it comes again. 9 where it was called in
// another way than the host has asked for.
void Mend(int, siginfo_t* info, void*) {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    stack_t stack;
    sigaltstack(nullptr, &stack);
    if (!sigismember(&blocked, SIGUSR1) || !(stack.ss_flags & SS_ONSTACK)) _exit(9);
    if (info->si_addr != theEdge->Before(0)) _exit(8);
    theFaults = theFaults + 1;
    mprotect(theEdge->Before(0), kPage, PROT_READ | PROT_WRITE);
}

void MendOrPassOn(int signal, siginfo_t* info, void* context) {
    if (theHostFaults) {
        Mend(signal, info, context);
    } else {
        theOlder.sa_sigaction(signal, info, context);
    }
}

void SetUp(void (*handler)(int, siginfo_t*, void*)) {
    static char stack[64 * 1024];
    const stack_t alternative = {stack, 0, sizeof stack};
    sigaltstack(&alternative, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigaddset(&action.sa_mask, SIGUSR1);
    sigaction(SIGSEGV, &action, &theOlder);
}

// A host of its own, for a handler is the whole process's. 0 when all went as it should.
int Host(const std::vector<std::string>& arguments) {
    const CEdge edge;
    theEdge = const_cast<CEdge*>(&edge);
    const auto finds = [&] { return IsBadReadPtr(edge.Before(8), 16) && !IsBadReadPtr(edge.Before(8), 8); };
    const auto faults = [&] {
        theHostFaults = 1;
        *const_cast<volatile BYTE*>(edge.Before(0)) = 1;
    };
    const std::string& act = arguments[0];
    if (act == "handler before" || act == "handler after") {
        if (act == "handler before") SetUp(Mend);
        if (!finds()) return 1;
        if (act == "handler after") SetUp(MendOrPassOn);
        if (!finds()) return 2;
        faults();
        return theFaults == 1 ? 0 : 3;
    }
    if (act == "fault") {
        if (!finds()) return 1;
        faults();
    } else if (act == "sent") {
        if (!finds()) return 1;
        raise(SIGSEGV);
    } else if (act == "ignored") {
        std::signal(SIGSEGV, SIG_IGN);
        if (!finds()) return 1;
        raise(SIGSEGV);
        return finds() ? 0 : 2;
    } else if (act == "taken back") {
        if (!finds()) return 1;
        OvGuardFaults(FALSE);
        struct sigaction now = {};
        sigaction(SIGSEGV, nullptr, &now);
        if (now.sa_handler != SIG_DFL || !IsBadReadPtr(nullptr, 1) || IsBadReadPtr(edge.Before(8), 16)) return 2;
        OvGuardFaults(TRUE);
        return finds() ? 0 : 3;
    } else if (act == "kept from") {
        OvGuardFaults(FALSE);
        struct sigaction now = {};
        if (IsBadReadPtr(edge.Before(8), 16)) return 1;
        sigaction(SIGSEGV, nullptr, &now);
        return now.sa_handler == SIG_DFL ? 0 : 2;
    } else if (act == "covered") {
        if (!finds()) return 1;
        SetUp(MendOrPassOn);
        OvGuardFaults(FALSE);
        faults();
        return theFaults == 1 ? 0 : 2;
    }
    return 99;
}
const CChildRole hostRole("faulting-host", Host);

TEST(Probe, FaultsOfAHostStayTheHosts) {
#ifdef OV_SANITIZED
    constexpr bool kOwnHandler = true;  // of the sanitizer, which ends a process in another way
#else
    constexpr bool kOwnHandler = false;
#endif
    const struct {
        const char* act;
        int code;
    } rows[] = {{"handler before", 0}, {"handler after", 0}, {"fault", 128 + SIGSEGV}, {"sent", 128 + SIGSEGV},
                {"ignored", 0},        {"taken back", 0},    {"kept from", 0},         {"covered", 0}};
    for (const auto& row : rows) {
        if (kOwnHandler &&
            (row.code != 0 || std::strcmp(row.act, "taken back") == 0 || std::strcmp(row.act, "kept from") == 0))
            continue;
        CProcess host("faulting-host", {row.act});
        EXPECT_EQ(host.Wait(), row.code) << row.act;
    }
}

}  // namespace
