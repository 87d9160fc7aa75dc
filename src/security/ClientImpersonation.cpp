#include "security/ClientImpersonation.h"

#include "module/Failure.h"

namespace {

constexpr DWORD kComClient = 1;
constexpr DWORD kAnonymous = 2;
constexpr DWORD kRpcClient = 3;

}  // namespace

CClientImpersonation::CClientImpersonation() : m_result(CoImpersonateClient()), m_kind(kComClient) {
    if (SUCCEEDED(m_result)) return;
    if (m_result == static_cast<HRESULT>(RPC_E_CALL_COMPLETE)) {
        m_kind = kRpcClient;
        m_result = static_cast<HRESULT>(RpcImpersonateClient(nullptr));
        return;
    }
    m_kind = kAnonymous;
    if (!ImpersonateAnonymousToken(GetCurrentThread())) throw _com_error(HRESULT_FROM_WIN32(GetLastError()));
}

CClientImpersonation::~CClientImpersonation() {
    switch (m_kind) {
        case kComClient:
            CoRevertToSelf();
            break;
        case kRpcClient:
            RpcRevertToSelf();
            break;
        default:
            RevertToSelf();
            break;
    }
}
