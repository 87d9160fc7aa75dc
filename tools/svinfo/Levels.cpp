#include "svinfo/Levels.h"

#include <nlohmann/json.hpp>

#include "security/Sid.h"
#include "svinfo/Caller.h"
#include "svinfo/Text.h"

namespace {

bool SameName(const wstr& a, const wstr& b) noexcept {
    return CompareNames(wstr_view(a), wstr_view(b)) == 0;
}

CItem Holding(const wstr& name, const CPolicyValue& value, HRESULT hr) {
    CItem item(name);
    item.Copy(value.Raw(), hr);
    return item;
}

// What of a source that has no such item concerns it all the same.
CLevel EmptyLevel(const wstr& name, const CSourceEntry& entry) {
    CLevel level{entry.source->kind, LevelState::kAbsent, {entry.path, 0, 0}, CItem(name), {}};
    switch (entry.state) {
        case SourceState::kDamaged:
            level.state = LevelState::kNoSource;
            level.place = entry.damage;
            level.why = "damaged: " + entry.reason;
            return level;
        case SourceState::kAbsent:
            level.state = LevelState::kNoSource;
            level.why = entry.path.empty() ? "there is no data root" : "there is no such file";
            return level;
        case SourceState::kNoEngine:
            level.state = LevelState::kNoSource;
            level.why = "this computer has no policy engine";
            return level;
        case SourceState::kFound:
        case SourceState::kEmpty:
            break;
    }
    for (const CFinding& finding : entry.findings) {
        const bool ofAll = finding.oddity == Oddity::kItemsMissing || finding.oddity == Oddity::kItemsRepeated;
        if (!ofAll && (finding.item.empty() || !SameName(finding.item, name))) continue;
        level.state = LevelState::kPassedOver;
        level.place = finding.place;
        level.why = finding.text;
        break;
    }
    return level;
}

void AddSource(std::vector<CLevel>& levels, const wstr& name, const CSourceEntry& entry) {
    const std::size_t before = levels.size();
    const bool answered = WinnerOf(levels) != nullptr;
    for (const CDelivery& delivery : entry.deliveries) {
        if (!SameName(delivery.item.name, name)) continue;
        levels.push_back({entry.source->kind, delivery.kept && !answered ? LevelState::kWon : LevelState::kHidden,
                          delivery.place, Holding(name, delivery.item.value, S_OK),
                          !delivery.kept && levels.size() > before ? "the first one of the source counts" : ""});
        for (const CFinding& finding : entry.findings) {
            const bool here =
                finding.place.line != 0 && SameName(finding.item, name) && finding.belongsTo == delivery.place;
            if (here && finding.oddity == Oddity::kNumberCut) levels.back().why = finding.text;
        }
    }
    if (levels.size() == before) levels.push_back(EmptyLevel(name, entry));
}

// The local keys. A policy's own form is asked for in both before a plain value is asked for in either, and the first
// of them that has one ends that, even if it is an empty list, which is no answer.
void AddLocal(std::vector<CLevel>& levels, const wstr& name, bool answered) {
    bool formFound = false;
    for (LocalHolding& holding : LocalHoldingsOf(name)) {
        CLevel level{holding.level == LocalLevel::Local ? "local" : "default",
                     LevelState::kAbsent,
                     {MachineKeyText(holding.key), 0, 0},
                     CItem(name),
                     {}};
        if (holding.found) {
            const bool ended = holding.policyForm && formFound;
            formFound = formFound || holding.policyForm;
            level.held = Holding(name, holding.value, S_FALSE);
            if (answered) {
                level.state = LevelState::kHidden;
            } else if (FAILED(level.held.Result())) {
                level.state = LevelState::kPassedOver;
                level.why = "its list is empty";
            } else if (ended) {
                level.state = LevelState::kNotAsked;
                level.why = "the stronger key has the policy, be it empty";
            } else {
                level.state = LevelState::kWon;
                answered = true;
            }
        } else if (holding.damaged) {
            level.state = LevelState::kPassedOver;
            level.why = "the value is damaged, or of a type that no item can have";
        }
        if (holding.policyForm && !holding.found) level.why = "neither a list nor bits";
        levels.push_back(std::move(level));
    }
}

}  // namespace

const char* LevelStateName(LevelState state) noexcept {
    switch (state) {
        case LevelState::kWon:
            return "won";
        case LevelState::kHidden:
            return "hidden";
        case LevelState::kNotAsked:
            return "not asked";
        case LevelState::kPassedOver:
            return "passed over";
        case LevelState::kAbsent:
            return "absent";
        case LevelState::kNoSource:
            break;
    }
    return "no source";
}

Tone ToneOf(LevelState state) noexcept {
    switch (state) {
        case LevelState::kWon:
            return Tone::Good;
        case LevelState::kHidden:
        case LevelState::kNotAsked:
            return Tone::Notice;
        case LevelState::kPassedOver:
            return Tone::Bad;
        case LevelState::kAbsent:
        case LevelState::kNoSource:
            break;
    }
    return Tone::Faint;
}

CLevel UserLevelOf(const wstr& name, const CStoreView& view) {
    const wstr sid = CallerSid();
    CLevel level{"user", LevelState::kNoSource, {}, CItem(name), "no caller is known"};
    if (!sid.empty()) {
        level.place.path = "HKEY_USERS\\" + ToUtf8(sid) + "\\" + ToUtf8(kGroupPolicyKey);
        level.why = sid == LocalSystemSid().Text() ? "the system itself has no policy of its own" : "";
        level.state = level.why.empty() ? LevelState::kAbsent : LevelState::kNoSource;
        OV_SERVER_INFO_EX record = {name.c_str(), OV_QUERY, {}};
        if (view.Object().AnswerForUser(record)) {
            level.state = LevelState::kWon;
            level.held.Take(record);
        }
    }
    return level;
}

std::vector<CLevel> LevelsOf(const wstr& name, const CSourceLedger& ledger, const CStoreView& view) {
    std::vector<CLevel> levels;
    if (IsUserScopedName(name.c_str())) levels.push_back(UserLevelOf(name, view));
    for (const CSourceEntry& entry : ledger.Sources()) AddSource(levels, name, entry);
    AddLocal(levels, name, WinnerOf(levels) != nullptr);
    return levels;
}

std::vector<CLevel> LocalLevelsOf(const wstr& name, bool answered) {
    std::vector<CLevel> levels;
    AddLocal(levels, name, answered);
    return levels;
}

const CLevel* WinnerOf(const std::vector<CLevel>& levels) noexcept {
    for (const CLevel& level : levels) {
        if (level.state == LevelState::kWon) return &level;
    }
    return nullptr;
}

json OriginJson(const char* kind, const CPlace& place) {
    return {{"kind", kind}, {"path", place.path}, {"line", place.line}};
}
