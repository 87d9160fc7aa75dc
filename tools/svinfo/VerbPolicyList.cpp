// logon-policy, session-policy and is-admin: which credentials apply to a user, who is an administrator, and why.
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "authpolicy/DecisionObserver.h"
#include "authpolicy/UserService.h"
#include "module/Failure.h"
#include "svinfo/Caller.h"
#include "svinfo/Items.h"
#include "svinfo/StoreView.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CListOptions {
    std::string user;
    std::optional<std::string> maybeUser;
    bool explain = false;
};

// The road of a decision, in words.
class CRoad final : public CDecisionObserver {
  public:
    void Step(DecisionStep step, LPCWSTR name, HRESULT result, ULONGLONG number) override {
        if (step == DecisionStep::kAdministrator) m_decision = result;
        m_lines.push_back(TextOf(step, name ? name : W(""), result, number));
    }
    const std::vector<std::string>& Lines() const noexcept { return m_lines; }
    // Whether it could be found out who is an administrator.
    HRESULT Decision() const noexcept { return m_decision; }

  private:
    static std::string Found(HRESULT result) {
        if (FAILED(result)) return ResultText(result);
        return result == S_OK ? "found, managed" : "found, local";
    }
    static std::string TextOf(DecisionStep step, const wstr& name, HRESULT result, ULONGLONG number) {
        const bool yes = number != 0;
        switch (step) {
            case DecisionStep::kLockAgent:
                if (result == S_OK) return "lock agent: the computer is locked, its list counts";
                return result == E_NOINTERFACE ? "lock agent: there is none" : "lock agent: the computer is not locked";
            case DecisionStep::kRecovery:
                return yes ? "recovery account: yes, nothing else counts" : "recovery account: no";
            case DecisionStep::kKiosk:
                return "kiosk " + ToUtf8(name) + ": " + (yes ? "yes" : "no");
            case DecisionStep::kItem:
                return "item " + ToUtf8(name) + ": " + Found(result);
            case DecisionStep::kUserItem:
                return "item " + ToUtf8(name) + " of the caller: " + Found(result);
            case DecisionStep::kLocalAccount:
                return "account " + Quoted(name) + " of this computer: " +
                       (FAILED(result) ? ResultText(result) : "privilege " + std::to_string(number));
            case DecisionStep::kRememberedAs:
                return "account " + Quoted(name) + " of a domain: remembered as " +
                       (yes ? "an administrator" : "no administrator");
            case DecisionStep::kDomainAccount:
                return "account " + Quoted(name) +
                       " of a domain: " + (yes ? "among the administrators" : "not among the administrators");
            case DecisionStep::kAdministrator:
                if (name.empty() && SUCCEEDED(result)) {
                    return std::string("administrator: ") + (yes ? "yes" : "no") + ", S-1-5-32-544 is " +
                           (yes ? "" : "not ") + "among the caller's groups";
                }
                return std::string("administrator: ") + (yes ? "yes" : "no") +
                       (FAILED(result) ? ", for it could not be found out: " + ResultText(result) : "");
            case DecisionStep::kSpareKey:
                return std::string("spare key: ") + (yes ? "allowed" : "not allowed") +
                       (FAILED(result) ? ", for nothing says otherwise" : "");
            case DecisionStep::kAdded:
                return "added: 0x" + MaskDigits(number);
            case DecisionStep::kRemoved:
                return "taken out: 0x" + MaskDigits(number);
        }
        return {};
    }
    std::vector<std::string> m_lines;
    HRESULT m_decision = S_OK;
};

const char* MaskName(ULONGLONG mask) noexcept {
    switch (mask) {
        case 0x1:
            return "the recovery account's, where it stands alone";
        case 0x8:
            return "spare key";
        case 0x40:
            return "part of every logon list";
        default:
            return "";
    }
}

// An object of the tree's own, with the road that it takes.
class CDecider {
  public:
    CDecider() { m_view.Object().Observe(&m_road); }
    ~CDecider() { m_view.Object().Observe(static_cast<CDecisionObserver*>(nullptr)); }
    CDecider(const CDecider&) = delete;
    CDecider& operator=(const CDecider&) = delete;

    CServerInfo& Object() const noexcept { return m_view.Object(); }
    const CRoad& Road() const noexcept { return m_road; }

  private:
    CRoad m_road;
    CStoreView m_view;
};

void TellRoad(const CRoad& road, const CListOptions& options, COutput& output) {
    if (!options.explain) return;
    for (const std::string& line : road.Lines()) output.Note(EscapeControls(line));
}

void AddRoad(json& answer, const CRoad& road, const CListOptions& options) {
    if (options.explain) answer["steps"] = road.Lines();
}

void TellList(const std::vector<ULONGLONG>& masks, COutput& output) {
    CTable table{{"MASK", "KNOWN AS"}, {}};
    for (const ULONGLONG mask : masks) {
        table.rows.push_back({{"0x" + MaskDigits(mask), Tone::Strong}, {MaskName(mask), Tone::Faint}});
    }
    output.Table(table);
}

// `ask` gives the list and its result.
template <class Ask>
ExitCode ShowList(const std::string& user, const CListOptions& options, COutput& output, Ask ask) {
    const CDecider decider;
    DWORD count = 0;
    ULONGLONG* list = nullptr;
    const HRESULT hr = ask(decider.Object(), &count, &list);
    std::vector<ULONGLONG> masks;
    if (SUCCEEDED(hr) && list) masks.assign(list, list + count);
    CoTaskMemFree(list);
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["user"] = user.empty() ? json(nullptr) : json(user);
        answer["hr"] = ResultText(hr).substr(0, 10);
        answer["list"] = json::array();
        for (const ULONGLONG mask : masks) answer["list"].push_back(MaskDigits(mask));
        AddRoad(answer, decider.Road(), options);
        output.Json(answer);
    } else {
        TellRoad(decider.Road(), options, output);
        TellList(masks, output);
    }
    if (SUCCEEDED(hr)) {
        if (masks.empty()) output.Note("svinfo: the list is empty");
        return ExitCode::Ok;
    }
    output.Problem("svinfo: " + std::string(hr == kNotFound ? "no policy says which credentials apply: " : "") +
                   ResultText(hr));
    return hr == kNotFound ? ExitCode::No : ExitCode::Failed;
}

ExitCode LogonPolicy(const CListOptions& options, COutput& output) {
    const CUserName user = UserNameArgument(options.user);
    return ShowList(options.user, options, output, [&](CServerInfo& info, DWORD* count, ULONGLONG** list) {
        return info.GetUserLogonPolicyList(user.name.c_str(), user.format, count, list);
    });
}

ExitCode SessionPolicy(const CListOptions& options, COutput& output) {
    if (!options.maybeUser) {
        return ShowList("", options, output, [](CServerInfo& info, DWORD* count, ULONGLONG** list) {
            return info.GetSessionPolicyList(count, list);
        });
    }
    const CUserName user = UserNameArgument(*options.maybeUser);
    return ShowList(*options.maybeUser, options, output, [&](CServerInfo& info, DWORD* count, ULONGLONG** list) {
        return info.GetUserSessionPolicyList(user.name.c_str(), user.format, count, list);
    });
}

ExitCode IsAdmin(const CListOptions& options, COutput& output) {
    const CUserName user = UserNameArgument(options.user);
    const CDecider decider;
    const bool isAdmin = decider.Object().IsAdmin(user.name.c_str(), user.format) == S_OK;
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["user"] = options.user;
        answer["admin"] = isAdmin;
        AddRoad(answer, decider.Road(), options);
        output.Json(answer);
    } else {
        TellRoad(decider.Road(), options, output);
        output.Line(isAdmin ? "yes" : "no");
    }
    if (const HRESULT hr = decider.Road().Decision(); FAILED(hr)) {
        output.Problem("svinfo: who is an administrator could not be found out: " + ResultText(hr));
        const bool unknown = hr == kNoSuchUser || hr == HRESULT_FROM_WIN32(ERROR_NONE_MAPPED) ||
                             hr == HRESULT_FROM_WIN32(ERROR_INVALID_SID);
        return unknown ? ExitCode::No : ExitCode::Failed;
    }
    return isAdmin ? ExitCode::Ok : ExitCode::No;
}

CAction DefineFor(CArguments& arguments, ExitCode (*run)(const CListOptions&, COutput&), bool needsUser) {
    const auto options = std::make_shared<CListOptions>();
    needsUser ? arguments.Required("USER", options->user) : arguments.Optional("USER", options->maybeUser);
    arguments.Flag("--explain", options->explain);
    return [options, run](COutput& output) { return run(*options, output); };
}

}  // namespace

CAction DefineLogonPolicy(CArguments& arguments) {
    return DefineFor(arguments, LogonPolicy, true);
}
CAction DefineSessionPolicy(CArguments& arguments) {
    return DefineFor(arguments, SessionPolicy, false);
}
CAction DefineIsAdmin(CArguments& arguments) {
    return DefineFor(arguments, IsAdmin, true);
}
