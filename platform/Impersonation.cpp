#include "Impersonation.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "BoolCall.h"
#include "Home.h"
#include "UserSid.h"

namespace {

struct CThreadState {
    CImpersonation now;

    // The call that the host has declared.
    bool isInCall = false;
    CIdentityRef caller;    // null for one who refuses
    CImpersonation before;  // at its begin
    bool hasTakenOn = false;
    CImpersonation beforeTakingOn;
};

// What code runs late in a thread's end finds nobody impersonated, and can take on nobody.
thread_local CThreadState* t_state = nullptr;
thread_local bool t_isOver = false;

struct CThreadStateOwner {
    ~CThreadStateOwner() {
        delete std::exchange(t_state, nullptr);
        t_isOver = true;
    }
    void Own() const noexcept {}
};
thread_local CThreadStateOwner t_owner;

// The thread's state, made when it is missing. Raises std::bad_alloc.
CThreadState& State() {
    if (t_state) return *t_state;
    if (t_isOver) throw std::bad_alloc();
    t_owner.Own();
    return *(t_state = new CThreadState);
}

// `identify` gives who calls; it is not asked when a call is under way.
template <class Identify>
DWORD BeginCall(Identify identify) noexcept {
    try {
        if (t_state && t_state->isInCall) return ERROR_BUSY;
        CIdentityRef caller;
        if (const DWORD error = identify(caller)) return error;
        CThreadState& state = State();
        state.isInCall = true;
        state.caller = std::move(caller);
        state.before = state.now;
        return ERROR_SUCCESS;
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

DWORD PeerOf(int socket, ucred& peer) noexcept {
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return errno == EBADF || errno == ENOTSOCK ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER;
    }
    constexpr uid_t kNobodyThere = static_cast<uid_t>(-1);
    return size != sizeof peer || peer.uid == kNobodyThere ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

}  // namespace

const CImpersonation& ThreadImpersonation() noexcept {
    static const CImpersonation nobody;
    return t_state ? t_state->now : nobody;
}

std::string EffectiveUserSid() {
    const CImpersonation& impersonation = ThreadImpersonation();
    if (!impersonation.who) return ProcessUserSid();
    return impersonation.level == SecurityAnonymous ? SidText(AnonymousSid()) : impersonation.who->userText;
}

BOOL WINAPI ImpersonateSelf(SECURITY_IMPERSONATION_LEVEL level) {
    return Succeeds([&]() -> DWORD {
        if (level < SecurityAnonymous || level > SecurityDelegation) return ERROR_INVALID_PARAMETER;
        State().now = {ProcessIdentity(), level};
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI ImpersonateAnonymousToken(HANDLE thread) {
    return Succeeds([&]() -> DWORD {
        if (thread != GetCurrentThread()) return ERROR_INVALID_HANDLE;
        State().now = {AnonymousIdentity(), SecurityImpersonation};
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI RevertToSelf() {
    if (t_state) t_state->now = {};
    return TRUE;
}

HRESULT WINAPI CoImpersonateClient() {
    if (!t_state || !t_state->isInCall) return RPC_E_CALL_COMPLETE;
    CThreadState& state = *t_state;
    if (!state.caller) return E_ACCESSDENIED;
    if (!state.hasTakenOn) state.beforeTakingOn = state.now;
    state.hasTakenOn = true;
    state.now = {state.caller, SecurityImpersonation};
    return S_OK;
}

HRESULT WINAPI CoRevertToSelf() {
    if (!t_state || !t_state->isInCall) return RPC_E_CALL_COMPLETE;
    CThreadState& state = *t_state;
    if (std::exchange(state.hasTakenOn, false)) state.now = std::exchange(state.beforeTakingOn, {});
    return S_OK;
}

LONG WINAPI RpcImpersonateClient(void*) {
    return RPC_S_INVALID_BINDING;
}

LONG WINAPI RpcRevertToSelf() {
    return RPC_S_INVALID_BINDING;
}

// The process that connected may be gone, and its number may be another's by now: of all that is told only the session
// hangs on the number.
DWORD WINAPI OvBeginCallOfPeer(int socket) {
    return BeginCall([&](CIdentityRef& caller) -> DWORD {
        ucred peer = {};
        if (const DWORD error = PeerOf(socket, peer)) return error;
        caller = IdentityOfUser(peer.uid, peer.gid, SessionOf(peer.pid).value_or(0));
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI OvBeginCallOfUser(DWORD uid, DWORD session) {
    return BeginCall([&](CIdentityRef& caller) -> DWORD {
        caller = IdentityOfUser(uid, std::nullopt, session);
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI OvBeginCallOfSids(const LPCWSTR* sids, DWORD count, DWORD session) {
    return BeginCall([&](CIdentityRef& caller) -> DWORD {
        if (count == 0) return ERROR_SUCCESS;
        if (!sids) return ERROR_INVALID_PARAMETER;
        std::vector<CSid> all;
        for (DWORD i = 0; i < count; ++i) {
            if (!sids[i]) return ERROR_INVALID_PARAMETER;
            const std::optional<CSid> sid = ParseSid(sids[i]);
            if (!sid) return ERROR_INVALID_SID;
            all.push_back(*sid);
        }
        caller = IdentityOfSids(all, session);
        return ERROR_SUCCESS;
    });
}

void WINAPI OvEndCall() {
    if (!t_state || !t_state->isInCall) return;
    CThreadState& state = *t_state;
    state.now = std::move(state.before);
    state.isInCall = state.hasTakenOn = false;
    state.before = state.beforeTakingOn = {};
    state.caller.reset();
}
