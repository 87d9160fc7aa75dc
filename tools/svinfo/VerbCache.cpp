// cache show, cache verify, cache diff: the store between two objects.
#include <memory>
#include <nlohmann/json.hpp>

#include "svinfo/CacheView.h"
#include "svinfo/Findings.h"
#include "svinfo/Items.h"
#include "svinfo/StoreView.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

std::string DigestText(const CCacheDigest& digest) {
    return HexText(digest.data(), digest.size());
}

CItem Shown(const CPolicyItem& item) {
    CItem shown(item.name);
    shown.Copy(item.value.Raw(), S_OK);
    return shown;
}

json ValueJson(const CPolicyItem* item) {
    if (!item) return nullptr;
    const CItem shown = Shown(*item);
    return {{"type", shown.TypeName()}, {"value", shown.Json()}};
}

std::string ValueText(const CPolicyItem* item) {
    if (!item) return "(none)";
    std::string text;
    for (const std::string& line : Shown(*item).Lines()) text += (text.empty() ? "" : ", ") + line;
    return text;
}

json FileJson(const CCacheView& cache) {
    json answer = JsonAnswer();
    answer["file"] = cache.Path();
    answer["bytes"] = cache.Bytes();
    answer["digest"] = {{"good", cache.IsWhole()},
                        {"stored", cache.IsLongEnough() ? json(DigestText(cache.Stored())) : json(nullptr)},
                        {"computed", cache.IsLongEnough() ? json(DigestText(cache.Computed())) : json(nullptr)}};
    return answer;
}

std::string Summary(const CCacheView& cache) {
    return EscapeControls(cache.Path()) + ": " + CountText(cache.Bytes(), "byte", "bytes") + ", " +
           CountText(cache.Items().size(), "item", "items") + ", digest good";
}

// What is odd about a whole file, and the exit code that goes with it.
ExitCode Tell(const CCacheView& cache, COutput& output) {
    const std::vector<std::string> findings = cache.Findings();
    TellLines(EscapeControls(cache.Path()), findings, output);
    return findings.empty() ? ExitCode::Ok : ExitCode::No;
}

ExitCode Show(const std::string& path, COutput& output) {
    const CCacheView cache(path);
    cache.RequireWhole();
    if (output.Style().json) {
        json answer = FileJson(cache);
        answer["items"] = json::array();
        for (const CPolicyItem& item : cache.Items()) answer["items"].push_back(ItemJson(Shown(item)));
        output.Json(answer);
        return Tell(cache, output);
    }
    CTable table{{"NAME", "VALUE", "TYPE"}, {}};
    for (const CPolicyItem& item : cache.Items()) {
        const CItem shown = Shown(item);
        const std::string type = IsCachedType(item) ? shown.TypeName() : "type " + std::to_string(item.value.Type());
        std::vector<std::string> lines = shown.Lines();
        if (lines.empty()) lines.emplace_back();
        for (const std::string& line : lines) {
            table.rows.push_back({{ToUtf8(item.name), Tone::Plain}, {line, Tone::Plain}, {type, Tone::Faint}});
        }
    }
    output.Table(table);
    output.Note(Summary(cache));
    return Tell(cache, output);
}

ExitCode Verify(const std::string& path, COutput& output) {
    const CCacheView cache(path);
    const std::vector<std::string> findings = cache.IsWhole() ? cache.Findings() : std::vector<std::string>();
    if (output.Style().json) {
        json answer = FileJson(cache);
        answer["items"] = cache.IsWhole() ? json(cache.Items().size()) : json(nullptr);
        answer["findings"] = findings;
        output.Json(answer);
    } else if (cache.IsWhole()) {
        output.Line(Summary(cache));
    }
    if (!cache.IsWhole()) {
        output.Problem(cache.Damage());
        return ExitCode::BadInput;
    }
    return Tell(cache, output);
}

const char* ChangeName(PolicyDifference::Kind kind) noexcept {
    switch (kind) {
        case PolicyDifference::Kind::kCreated:
            return "created";
        case PolicyDifference::Kind::kDeleted:
            return "deleted";
        case PolicyDifference::Kind::kChanged:
            break;
    }
    return "changed";
}

Tone ToneOf(PolicyDifference::Kind kind) noexcept {
    return kind == PolicyDifference::Kind::kCreated   ? Tone::Good
           : kind == PolicyDifference::Kind::kDeleted ? Tone::Bad
                                                      : Tone::Notice;
}

ExitCode Diff(const std::string& path, COutput& output) {
    const CCacheView cache(path);
    cache.RequireWhole();
    CPolicyMap cached;
    // What the component would pass over is nothing that it could have told as deleted.
    for (const CPolicyItem& item : cache.Items()) {
        if (IsCachedType(item)) cached.Insert(item);
    }
    const CPolicyMap live = CStoreView().ManagedItems();
    json answer = FileJson(cache);
    answer["differences"] = json::array();
    CTable table{{"CHANGE", "NAME", "CACHED", "NOW"}, {}};
    for (const PolicyDifference& difference : CPolicyMap::Differences(cached, live)) {
        const wstr& name = difference.item->name;
        const CPolicyItem* before = cached.Find(name);
        const CPolicyItem* now = live.Find(name);
        answer["differences"].push_back({{"name", ToUtf8(name)},
                                         {"change", ChangeName(difference.kind)},
                                         {"cached", ValueJson(before)},
                                         {"now", ValueJson(now)}});
        table.rows.push_back({{ChangeName(difference.kind), ToneOf(difference.kind)},
                              {ToUtf8(name), Tone::Strong},
                              {ValueText(before), Tone::Plain},
                              {ValueText(now), Tone::Plain}});
    }
    output.Style().json ? output.Json(answer) : output.Table(table);
    return table.rows.empty() ? ExitCode::Ok : ExitCode::No;
}

template <class Do>
CAction DefineOnFile(CArguments& arguments, Do act) {
    const auto file = std::make_shared<std::string>();
    arguments.Optional("FILE", *file);
    return [file, act](COutput& output) { return act(*file, output); };
}

}  // namespace

CAction DefineCacheShow(CArguments& arguments) {
    return DefineOnFile(arguments, Show);
}

CAction DefineCacheVerify(CArguments& arguments) {
    return DefineOnFile(arguments, Verify);
}

CAction DefineCacheDiff(CArguments& arguments) {
    return DefineOnFile(arguments, Diff);
}
