#include "Acl.h"

#include <cstring>

#include "BoolCall.h"

namespace {

constexpr DWORD kLargestAcl = 0xFFFF;
constexpr BYTE kLargestRevision = 4;  // that of a directory's lists
constexpr DWORD kInheritanceFlags = 0x1F;

bool IsRevision(DWORD revision) noexcept {
    return revision >= ACL_REVISION && revision <= kLargestRevision;
}

// Puts `count` entries behind the last one. The list is that of the reader.
DWORD Append(void* to, const CAclReader& list, DWORD revision, const void* entries, std::size_t size, WORD count,
             DWORD errorWithoutRoom) noexcept {
    if (size > list.Head().AclSize - list.Used()) return errorWithoutRoom;
    std::memcpy(static_cast<BYTE*>(to) + list.Used(), entries, size);
    ACL head = list.Head();
    head.AceCount = static_cast<WORD>(head.AceCount + count);
    if (revision > head.AclRevision) head.AclRevision = static_cast<BYTE>(revision);
    std::memcpy(to, &head, sizeof head);
    return ERROR_SUCCESS;
}

}  // namespace

std::size_t SizeOfAce(std::span<const BYTE> bytes) noexcept {
    ACE_HEADER header;
    if (bytes.size() < sizeof header) return 0;
    std::memcpy(&header, bytes.data(), sizeof header);
    const bool fits = header.AceSize >= sizeof header && header.AceSize % 4 == 0 && header.AceSize <= bytes.size();
    return fits ? header.AceSize : 0;
}

CAclReader::CAclReader(const void* acl, std::size_t room) noexcept : m_bytes(static_cast<const BYTE*>(acl)) {
    if (!acl || room < sizeof m_head) return;
    std::memcpy(&m_head, acl, sizeof m_head);
    if (!IsRevision(m_head.AclRevision) || m_head.AclSize < sizeof m_head || m_head.AclSize > room) return;
    for (WORD i = 0; i < m_head.AceCount; ++i) {
        const std::size_t size = SizeOfAce({m_bytes + m_used, m_head.AclSize - m_used});
        if (size == 0) return;
        m_used += size;
    }
    m_isWhole = true;
}

BOOL WINAPI InitializeAcl(PACL acl, DWORD size, DWORD revision) {
    return Succeeds([&]() -> DWORD {
        if (!acl || !IsRevision(revision) || size > kLargestAcl) return ERROR_INVALID_PARAMETER;
        if (size < sizeof(ACL)) return ERROR_INSUFFICIENT_BUFFER;
        const ACL head = {static_cast<BYTE>(revision), 0, static_cast<WORD>(size & ~DWORD{3}), 0, 0};
        std::memcpy(acl, &head, sizeof head);
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI AddAccessAllowedAce(PACL acl, DWORD revision, DWORD mask, PSID sid) {
    return AddAccessAllowedAceEx(acl, revision, 0, mask, sid);
}

BOOL WINAPI AddAccessAllowedAceEx(PACL acl, DWORD revision, DWORD flags, DWORD mask, PSID sid) {
    return Succeeds([&]() -> DWORD {
        const std::optional<CSid> who = ReadSid(sid);
        if (!who) return ERROR_INVALID_SID;
        const CAclReader list(acl);
        if (!IsRevision(revision)) return ERROR_REVISION_MISMATCH;
        if (!list.IsWhole()) return ERROR_INVALID_ACL;
        if (flags & ~kInheritanceFlags) return ERROR_INVALID_PARAMETER;
        BYTE entry[offsetof(ACCESS_ALLOWED_ACE, SidStart) + sizeof(CSid)];
        const std::size_t size = offsetof(ACCESS_ALLOWED_ACE, SidStart) + who->Size();
        const ACE_HEADER header = {ACCESS_ALLOWED_ACE_TYPE, static_cast<BYTE>(flags), static_cast<WORD>(size)};
        std::memcpy(entry, &header, sizeof header);
        std::memcpy(entry + offsetof(ACCESS_ALLOWED_ACE, Mask), &mask, sizeof mask);
        std::memcpy(entry + offsetof(ACCESS_ALLOWED_ACE, SidStart), &*who, who->Size());
        return Append(acl, list, revision, entry, size, 1, ERROR_ALLOTTED_SPACE_EXCEEDED);
    });
}

BOOL WINAPI AddAce(PACL acl, DWORD revision, DWORD index, LPVOID aces, DWORD size) {
    return Succeeds([&]() -> DWORD {
        const CAclReader list(acl);
        if (!list.IsWhole() || !IsRevision(revision) || index != MAXDWORD || !aces || size == 0) {
            return ERROR_INVALID_PARAMETER;
        }
        std::span<const BYTE> rest(static_cast<const BYTE*>(aces), size);
        DWORD count = 0;
        for (; !rest.empty(); ++count) {
            const std::size_t entry = SizeOfAce(rest);
            if (entry == 0) return ERROR_INVALID_PARAMETER;
            rest = rest.subspan(entry);
        }
        // As many as fit into a list cannot be too many to be counted.
        return Append(acl, list, revision, aces, size, static_cast<WORD>(count), ERROR_INSUFFICIENT_BUFFER);
    });
}

BOOL WINAPI GetAce(PACL acl, DWORD index, LPVOID* ace) {
    return Succeeds([&]() -> DWORD {
        if (!ace) return ERROR_INVALID_PARAMETER;
        const CAclReader list(acl);
        if (!list.IsWhole() || index >= list.Head().AceCount) return ERROR_INVALID_PARAMETER;
        std::span<const BYTE> rest = list.Entries();
        for (; index > 0; --index) rest = rest.subspan(SizeOfAce(rest));
        *ace = const_cast<BYTE*>(rest.data());
        return ERROR_SUCCESS;
    });
}
