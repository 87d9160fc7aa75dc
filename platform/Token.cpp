// Tokens: what a handle shows of an identity.
#include <unistd.h>

#include <cstring>

#include "BoolCall.h"
#include "Impersonation.h"
#include "TokenObject.h"
#include "win/registry.h"
#include "win/sync.h"

namespace {

DWORD OpenToken(CIdentityRef who, std::optional<SECURITY_IMPERSONATION_LEVEL> level, DWORD access, HANDLE* token) {
    if (access & ~static_cast<DWORD>(TOKEN_ALL_ACCESS | MAXIMUM_ALLOWED)) return ERROR_INVALID_PARAMETER;
    const DWORD granted = access & MAXIMUM_ALLOWED ? TOKEN_ALL_ACCESS : access;
    *token = OpenHandle(std::make_shared<CToken>(std::move(who), level, granted));
    return *token ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY;
}

// An answer in the caller's buffer: a structure in front and the SIDs that it points to behind it. The buffer need not
// be aligned. The structure's fields are told by their offsets.
class CAnswer {
  public:
    CAnswer(void* buffer, std::size_t structure) noexcept : m_buffer(static_cast<BYTE*>(buffer)), m_end(structure) {}

    template <class Value>
    void Put(std::size_t offset, const Value& value) noexcept {
        std::memcpy(m_buffer + offset, &value, sizeof value);
    }
    void PutSid(std::size_t offset, const CSid& sid) noexcept {
        Put<PSID>(offset, m_buffer + m_end);
        std::memcpy(m_buffer + m_end, &sid, sid.Size());
        m_end += sid.Size();
    }
    void PutSid(std::size_t offset, const CSid& sid, DWORD attributes) noexcept {
        PutSid(offset + offsetof(SID_AND_ATTRIBUTES, Sid), sid);
        Put(offset + offsetof(SID_AND_ATTRIBUTES, Attributes), attributes);
    }

  private:
    BYTE* m_buffer;
    std::size_t m_end;
};

std::size_t SizeOfGroups(const CIdentity& who) noexcept {
    return offsetof(TOKEN_GROUPS, Groups) + who.groups.size() * sizeof(SID_AND_ATTRIBUTES);
}

// 0 for a class that is not served.
std::size_t SizeOfAnswer(const CToken& token, TOKEN_INFORMATION_CLASS what) noexcept {
    const CIdentity& who = token.Who();
    switch (what) {
        case TokenUser:
            return sizeof(TOKEN_USER) + who.user.Size();
        case TokenGroups: {
            std::size_t size = SizeOfGroups(who);
            for (const CGroup& group : who.groups) size += group.sid.Size();
            return size;
        }
        case TokenPrimaryGroup:
            return sizeof(TOKEN_PRIMARY_GROUP) + who.primaryGroup.Size();
        case TokenType:
        case TokenImpersonationLevel:
        case TokenSessionId:
            return sizeof(DWORD);
        case TokenIntegrityLevel:
            return sizeof(TOKEN_MANDATORY_LABEL) + SidSize(1);
    }
    return 0;
}

DWORD WriteAnswer(const CToken& token, TOKEN_INFORMATION_CLASS what, void* buffer) noexcept {
    const CIdentity& who = token.Who();
    switch (what) {
        case TokenUser:
            CAnswer(buffer, sizeof(TOKEN_USER)).PutSid(0, who.user, 0);
            break;
        case TokenGroups: {
            CAnswer answer(buffer, SizeOfGroups(who));
            answer.Put(0, static_cast<DWORD>(who.groups.size()));
            std::size_t at = offsetof(TOKEN_GROUPS, Groups);
            for (const CGroup& group : who.groups) {
                answer.PutSid(at, group.sid, group.attributes);
                at += sizeof(SID_AND_ATTRIBUTES);
            }
            break;
        }
        case TokenPrimaryGroup:
            CAnswer(buffer, sizeof(TOKEN_PRIMARY_GROUP)).PutSid(0, who.primaryGroup);
            break;
        case TokenType:
            CAnswer(buffer, 0).Put(0, token.Level() ? TokenImpersonation : TokenPrimary);
            break;
        case TokenImpersonationLevel:
            if (!token.Level()) return ERROR_INVALID_PARAMETER;
            CAnswer(buffer, 0).Put(0, *token.Level());
            break;
        case TokenSessionId:
            CAnswer(buffer, 0).Put(0, who.session);
            break;
        case TokenIntegrityLevel:
            CAnswer(buffer, sizeof(TOKEN_MANDATORY_LABEL))
                .PutSid(0, IntegritySid(token.Integrity()), SE_GROUP_INTEGRITY | SE_GROUP_INTEGRITY_ENABLED);
            break;
    }
    return ERROR_SUCCESS;
}

DWORD ReadLabel(const void* buffer, DWORD size, DWORD& level) noexcept {
    if (!buffer) return ERROR_NOACCESS;
    if (size < sizeof(TOKEN_MANDATORY_LABEL)) return ERROR_BAD_LENGTH;
    TOKEN_MANDATORY_LABEL label;
    std::memcpy(&label, buffer, sizeof label);
    const std::optional<CSid> sid = ReadSid(label.Label.Sid);
    if (!sid || *sid != IntegritySid(sid->parts[0])) return ERROR_INVALID_SID;
    level = sid->parts[0];
    return ERROR_SUCCESS;
}

bool ActsForSystem() {
    const CIdentityRef& who = ThreadImpersonation().who;
    return who ? who->user == SystemSid() : geteuid() == 0;
}

}  // namespace

HANDLE WINAPI GetCurrentThread() {
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));
}

HANDLE WINAPI GetCurrentProcess() {
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));
}

BOOL WINAPI OpenThreadToken(HANDLE thread, DWORD access, BOOL, HANDLE* token) {
    return Succeeds([&]() -> DWORD {
        if (!token) return ERROR_NOACCESS;
        *token = nullptr;
        if (thread != GetCurrentThread()) return ERROR_INVALID_HANDLE;
        const CImpersonation& impersonation = ThreadImpersonation();
        if (!impersonation.who) return ERROR_NO_TOKEN;
        if (impersonation.level == SecurityAnonymous) return ERROR_CANT_OPEN_ANONYMOUS;
        return OpenToken(impersonation.who, impersonation.level, access, token);
    });
}

BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, HANDLE* token) {
    return Succeeds([&]() -> DWORD {
        if (!token) return ERROR_NOACCESS;
        *token = nullptr;
        if (process != GetCurrentProcess()) return ERROR_INVALID_HANDLE;
        return OpenToken(ProcessIdentity(), std::nullopt, access, token);
    });
}

BOOL WINAPI GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size, DWORD* needed) {
    return Succeeds([&]() -> DWORD {
        if (!needed) return ERROR_NOACCESS;
        *needed = 0;
        const std::shared_ptr<CToken> object = ObjectOf<CToken>(token);
        if (!object) return ERROR_INVALID_HANDLE;
        const std::size_t answer = SizeOfAnswer(*object, what);
        if (answer == 0) return ERROR_INVALID_PARAMETER;
        if (!object->Allows(TOKEN_QUERY)) return ERROR_ACCESS_DENIED;
        *needed = static_cast<DWORD>(answer);
        if (!buffer || size < answer) return ERROR_INSUFFICIENT_BUFFER;
        return WriteAnswer(*object, what, buffer);
    });
}

BOOL WINAPI SetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size) {
    return Succeeds([&]() -> DWORD {
        const std::shared_ptr<CToken> object = ObjectOf<CToken>(token);
        if (!object) return ERROR_INVALID_HANDLE;
        if (what != TokenIntegrityLevel) return ERROR_INVALID_PARAMETER;
        if (!object->Allows(TOKEN_ADJUST_DEFAULT)) return ERROR_ACCESS_DENIED;
        DWORD level = 0;
        if (const DWORD error = ReadLabel(buffer, size, level)) return error;
        if (level > object->Integrity() && !ActsForSystem()) return ERROR_PRIVILEGE_NOT_HELD;
        object->SetIntegrity(level);
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI ProcessIdToSessionId(DWORD process, DWORD* session) {
    return Succeeds([&]() -> DWORD {
        if (!session) return ERROR_INVALID_PARAMETER;
        const std::optional<DWORD> found = SessionOf(static_cast<pid_t>(process));
        if (!found) return ERROR_INVALID_PARAMETER;
        *session = *found;
        return ERROR_SUCCESS;
    });
}
