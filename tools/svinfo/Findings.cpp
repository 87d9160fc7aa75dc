#include "svinfo/Findings.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "svinfo/Text.h"

namespace {

constexpr std::size_t kShown = 20;

json FindingJson(const CPlace& place, const std::string& text) {
    return {{"path", place.path}, {"line", place.line}, {"column", place.column}, {"text", text}};
}

// The first of `count` lines, and how many more there are of the file.
template <class Line>
void TellSome(const std::string& file, std::size_t count, COutput& output, Line line) {
    const std::size_t shown = output.Style().verbose ? count : std::min(count, kShown);
    for (std::size_t i = 0; i < shown; ++i) output.Problem(line(i));
    if (shown < count) output.Problem(file + ": and " + std::to_string(count - shown) + " more (-v)");
}

}  // namespace

bool HasFindings(const CSourceEntry& entry) noexcept {
    return entry.state == SourceState::kDamaged || !entry.findings.empty();
}

void TellLines(const std::string& file, const std::vector<std::string>& lines, COutput& output) {
    TellSome(file, lines.size(), output, [&](std::size_t i) { return file + ": " + lines[i]; });
}

void TellFindings(const CSourceEntry& entry, COutput& output) {
    if (entry.state == SourceState::kDamaged) output.Problem(PlaceText(entry.damage) + ": " + entry.reason);
    TellSome(EscapeControls(entry.path), entry.findings.size(), output,
             [&](std::size_t i) { return PlaceText(entry.findings[i].place) + ": " + entry.findings[i].text; });
}

void AddFindings(json& object, const CSourceEntry& entry) {
    object["damage"] = entry.state == SourceState::kDamaged ? FindingJson(entry.damage, entry.reason) : json(nullptr);
    object["findings"] = json::array();
    for (const CFinding& finding : entry.findings) {
        json out = FindingJson(finding.place, finding.text);
        out["item"] = finding.item.empty() ? json(nullptr) : json(ToUtf8(finding.item));
        object["findings"].push_back(std::move(out));
    }
}
