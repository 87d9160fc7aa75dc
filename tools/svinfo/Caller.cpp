#include "svinfo/Caller.h"

#include <charconv>

#include "authpolicy/UserService.h"
#include "module/Failure.h"
#include "security/AccessToken.h"
#include "security/ClientImpersonation.h"
#include "store/PolicyNames.h"
#include "svinfo/Failure.h"
#include "svinfo/Text.h"
#include "svinfo/UserName.h"

namespace {

constexpr std::string_view kUnixUser = "S-1-22-1-";

wstr OwnSid() {
    CAccessToken token;
    CSid user;
    if (token.OpenProcess(TOKEN_QUERY) || token.ReadUser(user)) return {};
    return user.Text();
}

bool IsRoot() {
    return OwnSid() == LocalSystemSid().Text();
}

// The number of a user by a SID of this system's; nothing for another one.
std::optional<DWORD> UserNumber(const std::string& sid) {
    if (sid == "S-1-5-18") return 0;
    DWORD number = 0;
    if (!sid.starts_with(kUnixUser)) return std::nullopt;
    const char* const end = sid.data() + sid.size();
    const auto [stop, error] = std::from_chars(sid.data() + kUnixUser.size(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

DWORD SessionNumber(const std::string& text) {
    DWORD number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error == std::errc() && stop == end && !text.empty()) return number;
    throw CCommandFailure(ExitCode::Usage, "--session: found " + Quoted(text) + ", expected a number");
}

}  // namespace

CCaller::CCaller(const std::optional<std::string>& user, const std::optional<std::string>& session) {
    const bool named = user || session;
    if (named && !IsRoot()) {
        throw CCommandFailure(ExitCode::Denied, "--as and --session are for root: " + ResultText(E_ACCESSDENIED));
    }
    const std::string sid = ToUtf8(user ? UserSidArgument(*user) : OwnSid());
    DWORD sessionId = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &sessionId);
    if (session) sessionId = SessionNumber(*session);
    const std::optional<DWORD> number = UserNumber(sid);
    const DWORD error = number ? OvBeginCallOfUser(*number, sessionId) : static_cast<DWORD>(ERROR_NONE_MAPPED);
    m_declared = error == ERROR_SUCCESS;
    if (named && error) throw FailureOf("act for " + Quoted(user ? *user : sid), HRESULT_FROM_WIN32(error));
}

CCaller::~CCaller() {
    if (m_declared) OvEndCall();
}

wstr CallerSid() {
    wstr sid;
    Guarded([&]() -> HRESULT {
        const CClientImpersonation caller;
        CAccessToken token;
        CSid user;
        if (!token.OpenThread(TOKEN_QUERY, TRUE) && !token.ReadUser(user)) sid = user.Text();
        return S_OK;
    });
    return sid;
}

CUserName UserNameArgument(const std::string& argument) {
    const wstr name = WideArgument(argument, "USER");
    if (CompareNames(name.c_str(), W("Recovery")) == 0) return {name, kNameSid};
    if (name.find_first_of(W("\\@")) != wstr::npos) return {name, kNameSam};
    return {UserSidArgument(argument), kNameSid};
}
