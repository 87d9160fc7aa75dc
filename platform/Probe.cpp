// Touching memory that may not be there.
//
// Three functions touch it, and do nothing else: they keep no frame, so that whoever stops them anywhere can have them
// return. A handler of SIGSEGV and SIGBUS does that for faults in them; every other fault it passes on to whoever
// handled it before, as the kernel would have.
#include "win/probe.h"

#include <signal.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "Home.h"

#ifdef __x86_64__

extern "C" {
// 0 when one byte of each page between the two, both included, can be touched; else 1.
int OvProbeRead(const void* first, const void* last) noexcept;
int OvProbeWrite(void* first, void* last) noexcept;
// 0 when the text can be read up to its NUL, or up to `end`; else 1. An aligned block never lies in two pages.
int OvProbeText(const void* text, const void* end) noexcept;
// Where the three begin and end, and where one goes on that faulted.
extern const char OvProbesBegin[], OvProbesEnd[], OvProbeFailed[];
}

asm(R"(
    .pushsection .text
    .hidden OvProbesBegin, OvProbesEnd, OvProbeFailed, OvProbeRead, OvProbeWrite, OvProbeText
    .globl OvProbesBegin, OvProbesEnd, OvProbeFailed, OvProbeRead, OvProbeWrite, OvProbeText
    .type OvProbeRead, @function
    .type OvProbeWrite, @function
    .type OvProbeText, @function
    .balign 16
OvProbesBegin:
OvProbeRead:
    .cfi_startproc
    endbr64
1:  movb (%rdi), %al
    orq $4095, %rdi
    incq %rdi
    cmpq %rsi, %rdi
    jbe 1b
    xorl %eax, %eax
    ret
    .cfi_endproc
OvProbeWrite:
    .cfi_startproc
    endbr64
1:  movb (%rdi), %al
    movb %al, (%rdi)
    orq $4095, %rdi
    incq %rdi
    cmpq %rsi, %rdi
    jbe 1b
    xorl %eax, %eax
    ret
    .cfi_endproc
OvProbeText:
    .cfi_startproc
    endbr64
    testb $1, %dil
    jnz 3f
    pxor %xmm0, %xmm0
    movl %edi, %ecx
    andl $15, %ecx
    andq $-16, %rdi
    movdqa (%rdi), %xmm1
    pcmpeqw %xmm0, %xmm1
    pmovmskb %xmm1, %eax
    shrl %cl, %eax
    testl %eax, %eax
    jnz 2f
1:  addq $16, %rdi
    cmpq %rsi, %rdi
    jae 2f
    movdqa (%rdi), %xmm1
    pcmpeqw %xmm0, %xmm1
    pmovmskb %xmm1, %eax
    testl %eax, %eax
    jz 1b
2:  xorl %eax, %eax
    ret
3:  cmpw $0, (%rdi)
    je 2b
    addq $2, %rdi
    cmpq %rsi, %rdi
    jb 3b
    xorl %eax, %eax
    ret
    .cfi_endproc
OvProbesEnd:
OvProbeFailed:
    .cfi_startproc
    endbr64
    movl $1, %eax
    ret
    .cfi_endproc
    .popsection
)");

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS};
constexpr int kWhatAHostAsksFor = SA_ONSTACK | SA_NODEFER | SA_RESTART;

// What handled the signals before; written before the handler stands.
struct sigaction thePrevious[2];

void TakeDefault(int signal) noexcept {
    struct sigaction plain = {};
    plain.sa_handler = SIG_DFL;
    sigaction(signal, &plain, nullptr);
}

// As if there were no handler here: that of before runs with its own mask and flags, for those were taken over. Where
// there was none, the fault comes again when this returns, and ends the process where it stands.
void PassOn(struct sigaction& previous, int signal, siginfo_t* info, void* context) noexcept {
    const bool isSent = info->si_code <= 0;  // by kill; does not come again
    if ((previous.sa_flags & SA_SIGINFO) == 0) {
        if (previous.sa_handler == SIG_IGN && isSent) return;
        if (previous.sa_handler == SIG_DFL || previous.sa_handler == SIG_IGN) {
            TakeDefault(signal);
            if (isSent) syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), signal);
            return;
        }
    }
    if ((static_cast<unsigned>(previous.sa_flags) & SA_RESETHAND) != 0) TakeDefault(signal);
    if (previous.sa_flags & SA_SIGINFO) {
        previous.sa_sigaction(signal, info, context);
    } else {
        previous.sa_handler(signal);
    }
}

void OnFault(int signal, siginfo_t* info, void* context) noexcept {
    auto& at = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP];
    const auto address = static_cast<std::uintptr_t>(at);
    if (address >= reinterpret_cast<std::uintptr_t>(OvProbesBegin) &&
        address < reinterpret_cast<std::uintptr_t>(OvProbesEnd) && info->si_code > 0) {
        at = static_cast<greg_t>(reinterpret_cast<std::uintptr_t>(OvProbeFailed));
        return;
    }
    PassOn(thePrevious[signal == SIGBUS], signal, info, context);
}

// Whether the handler stands. It is set up when something is probed for the first time: a process that only loads the
// layer keeps its signals.
class CFaultGuard {
  public:
    bool IsOn() noexcept {
        const State state = m_state.load(std::memory_order_acquire);
        if (state == State::kUnknown) [[unlikely]] {
            TurnOn(false);
            return m_state.load(std::memory_order_acquire) == State::kOn;
        }
        return state == State::kOn;
    }
    // Also against what the host has said before, if that is `wanted`.
    void TurnOn(bool wanted) noexcept {
        const std::lock_guard lock(m_lock);
        if (m_state == State::kOn || (m_state == State::kOff && !wanted)) return;
        if (!m_stands) SetUp();
        m_state.store(m_stands ? State::kOn : State::kOff, std::memory_order_release);
    }
    void TurnOff() noexcept {
        const std::lock_guard lock(m_lock);
        m_state.store(State::kOff, std::memory_order_release);
        if (m_stands) TakeDown();
    }

  private:
    enum class State { kUnknown, kOn, kOff };

    void SetUp() noexcept {
        for (const int signal : kSignals) {
            struct sigaction& previous = thePrevious[signal == SIGBUS];
            if (sigaction(signal, nullptr, &previous) != 0) return;
            struct sigaction ours = {};
            ours.sa_sigaction = OnFault;
            ours.sa_mask = previous.sa_mask;
            ours.sa_flags = SA_SIGINFO | (previous.sa_flags & kWhatAHostAsksFor);
            if (sigaction(signal, &ours, nullptr) != 0) return;
        }
        m_stands = true;
    }
    // Where a host has set up its own since, ours may be called from there, and stays to pass everything on.
    void TakeDown() noexcept {
        for (const int signal : kSignals) {
            struct sigaction now = {};
            sigaction(signal, nullptr, &now);
            if ((now.sa_flags & SA_SIGINFO) == 0 || now.sa_sigaction != OnFault) return;
        }
        for (const int signal : kSignals) sigaction(signal, &thePrevious[signal == SIGBUS], nullptr);
        m_stands = false;
    }

    std::mutex m_lock;
    std::atomic<State> m_state{State::kUnknown};
    bool m_stands = false;
};

constinit CFaultGuard theGuard;

// Whether the bytes end before they begin: that memory is nobody's.
bool Wraps(const void* memory, UINT_PTR size) noexcept {
    return reinterpret_cast<std::uintptr_t>(memory) + (size - 1) < reinterpret_cast<std::uintptr_t>(memory);
}
template <class Byte>
Byte* Last(Byte* memory, UINT_PTR size) noexcept {
    return reinterpret_cast<Byte*>(reinterpret_cast<std::uintptr_t>(memory) + (size - 1));
}

}  // namespace

BOOL WINAPI IsBadReadPtr(const void* memory, UINT_PTR size) {
    if (size == 0) return FALSE;
    if (!memory || Wraps(memory, size)) return TRUE;
    return theGuard.IsOn() && OvProbeRead(memory, Last(memory, size)) != 0;
}

BOOL WINAPI IsBadWritePtr(LPVOID memory, UINT_PTR size) {
    if (size == 0) return FALSE;
    if (!memory || Wraps(memory, size)) return TRUE;
    return theGuard.IsOn() && OvProbeWrite(memory, Last(memory, size)) != 0;
}

BOOL WINAPI IsBadStringPtrW(LPCWSTR text, UINT_PTR most) {
    if (most == 0) return FALSE;
    if (!text) return TRUE;
    const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(text);
    const std::uintptr_t room = (UINTPTR_MAX - begin) / sizeof(WCHAR);
    const std::uintptr_t end = begin + (most < room ? most : room) * sizeof(WCHAR);
    return theGuard.IsOn() && OvProbeText(text, reinterpret_cast<const void*>(end)) != 0;
}

void WINAPI OvGuardFaults(BOOL guard) {
    if (guard) {
        theGuard.TurnOn(true);
    } else {
        theGuard.TurnOff();
    }
}

#else

BOOL WINAPI IsBadReadPtr(const void* memory, UINT_PTR size) {
    return size != 0 && !memory;
}

BOOL WINAPI IsBadWritePtr(LPVOID memory, UINT_PTR size) {
    return size != 0 && !memory;
}

BOOL WINAPI IsBadStringPtrW(LPCWSTR text, UINT_PTR most) {
    return most != 0 && !text;
}

void WINAPI OvGuardFaults(BOOL) {}

#endif
