#include "svinfo/UserName.h"

#include <memory>
#include <vector>

#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

struct LocalDeleter {
    void operator()(WCHAR* text) const noexcept { LocalFree(text); }
};

bool IsSid(wstr_view text) noexcept {
    return text.starts_with(W("S-1-")) && text.size() > 4 &&
           text.find_first_not_of(W("0123456789-"), 4) == wstr_view::npos;
}

}  // namespace

wstr UserSidArgument(const std::string& argument) {
    const wstr name = WideArgument(argument, "USER");
    if (IsSid(name)) return name;
    alignas(SID) BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD sidSize = sizeof sid;
    std::vector<WCHAR> domain(256);
    auto domainSize = static_cast<DWORD>(domain.size());
    SID_NAME_USE use = SidTypeUnknown;
    if (!LookupAccountNameW(nullptr, name.c_str(), sid, &sidSize, domain.data(), &domainSize, &use)) {
        const DWORD error = GetLastError();
        if (error == ERROR_NONE_MAPPED) throw CCommandFailure(ExitCode::Usage, "there is no user " + Quoted(argument));
        throw FailureOf("look up the user " + Quoted(argument), HRESULT_FROM_WIN32(error));
    }
    if (use != SidTypeUser) throw CCommandFailure(ExitCode::Usage, Quoted(argument) + " is no user");
    LPWSTR text = nullptr;
    if (!ConvertSidToStringSidW(sid, &text)) {
        throw FailureOf("write the SID of " + Quoted(argument), HRESULT_FROM_WIN32(GetLastError()));
    }
    const std::unique_ptr<WCHAR, LocalDeleter> owned(text);
    return text;
}
