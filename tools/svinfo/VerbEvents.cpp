// events: the audit trail, as the suite's event logger keeps it in a file.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "diagnostics/EventLogger.h"
#include "module/RegistryKey.h"
#include "svinfo/FileIo.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CEventKind {
    DWORD id;
    const char* name;
    bool hasNew;
    bool failed;
};
constexpr CEventKind kKinds[] = {{kEventValueSet, "set", true, false},
                                 {kEventValueSetFailed, "set-failed", true, true},
                                 {kEventItemDeleted, "deleted", false, false},
                                 {kEventItemDeleteFailed, "delete-failed", false, true}};

struct CEvent {
    std::string time;
    std::string id;
    std::string message;
    const CEventKind* kind = nullptr;  // null for an event of somebody else's
    std::string item, before, now, domain, account, error;
};

std::vector<std::string> Split(const std::string& text, char at) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0;;) {
        const std::size_t end = text.find(at, begin);
        parts.push_back(text.substr(begin, end == text.npos ? text.npos : end - begin));
        if (end == text.npos) return parts;
        begin = end + 1;
    }
}

// What the logger wrote out, read back.
std::string Unescaped(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char next = text[++i];
        if (next == 'x' && i + 2 < text.size()) {
            out += static_cast<char>(HexDigit(static_cast<WCHAR>(text[i + 1])) * 16 +
                                     HexDigit(static_cast<WCHAR>(text[i + 2])));
            i += 2;
        } else {
            out += next == 't' ? '\t' : next == 'n' ? '\n' : next == 'r' ? '\r' : next;
        }
    }
    return out;
}

// False for a line that no event logger wrote.
bool ReadEvent(const std::string& line, CEvent& event) {
    std::vector<std::string> fields = Split(line, '\t');
    if (fields.size() < 3 || !fields[1].starts_with("0x")) return false;
    event = {};
    event.time = fields[0];
    event.id = fields[1];
    event.message = fields[2];
    const auto id = static_cast<DWORD>(std::stoul("0" + fields[1].substr(1), nullptr, 16));
    for (const CEventKind& kind : kKinds) {
        if (kind.id == id && fields.size() == 3u + 4u + kind.hasNew + kind.failed) event.kind = &kind;
    }
    if (!event.kind) return true;
    std::size_t at = 3;
    const auto next = [&] { return Unescaped(fields[at++]); };
    event.item = next();
    event.before = next();
    if (event.kind->hasNew) event.now = next();
    event.domain = next();
    event.account = next();
    if (event.kind->failed) event.error = next();
    return true;
}

std::string AuditFile() {
    CRegistryKey key;
    WCHAR path[MAX_PATH] = {};
    DWORD length = MAX_PATH;
    if (key.Open(HKEY_LOCAL_MACHINE, W("SOFTWARE\\Orvantis\\EventLog"), KEY_READ) ||
        key.QueryString(W("AuditFile"), path, length) || !*path) {
        throw CCommandFailure(
            ExitCode::No, "no file is kept: AuditFile of HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvantis\\EventLog names none");
    }
    return NativePath(path);
}

json EventJson(const CEvent& event) {
    json out = {{"time", event.time}, {"id", event.id}, {"message", event.message}};
    const auto text = [&](bool has, const std::string& value) { return has ? json(value) : json(nullptr); };
    out["event"] = event.kind ? json(event.kind->name) : json(nullptr);
    out["item"] = text(event.kind, event.item);
    out["old"] = text(event.kind, event.before);
    out["new"] = text(event.kind && event.kind->hasNew, event.now);
    out["domain"] = text(event.kind, event.domain);
    out["account"] = text(event.kind, event.account);
    out["error"] = text(event.kind && event.kind->failed, event.error);
    return out;
}

ExitCode Events(COutput& output) {
    const std::string path = AuditFile();
    std::error_code error;
    if (!std::filesystem::exists(std::u8string(path.begin(), path.end()), error)) {
        throw CCommandFailure(ExitCode::No, EscapeControls(path) + ": no event was logged yet");
    }
    CTable table{{"TIME", "EVENT", "ITEM", "OLD", "NEW", "BY", "ERROR"}, {}};
    json answer = JsonAnswer();
    answer["file"] = path;
    answer["events"] = json::array();
    std::size_t number = 0, odd = 0;
    for (const std::string& line : Split(ReadWholeFile(path), '\n')) {
        ++number;
        CEvent event;
        if (line.empty()) continue;
        if (!ReadEvent(line, event)) {
            ++odd;
            output.Problem(FilePosition(path, number, 1) + "found no event");
            continue;
        }
        answer["events"].push_back(EventJson(event));
        const bool failed = event.kind && event.kind->failed;
        table.rows.push_back({{event.time, Tone::Faint},
                              {event.kind ? event.kind->name : event.id, failed ? Tone::Bad : Tone::Plain},
                              {event.kind ? event.item : event.message, Tone::Strong},
                              {event.before, Tone::Plain},
                              {event.now, Tone::Plain},
                              {event.kind ? event.domain + "\\" + event.account : std::string(), Tone::Plain},
                              {event.error, Tone::Bad}});
    }
    output.Style().json ? output.Json(answer) : output.Table(table);
    return odd || table.rows.empty() ? ExitCode::No : ExitCode::Ok;
}

}  // namespace

CAction DefineEvents(CArguments&) {
    return [](COutput& output) { return Events(output); };
}
