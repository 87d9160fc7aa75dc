// events: the audit trail, as the suite's event logger keeps it in a file.
#include <charconv>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "diagnostics/EventLogger.h"
#include "suite/AuditFile.h"
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
        if (next == 'u' && i + 4 < text.size()) {
            WCHAR unit = 0;
            for (int digit = 0; digit < 4; ++digit) {
                unit = static_cast<WCHAR>(unit * 16 + HexDigit(static_cast<WCHAR>(text[++i])));
            }
            out += ToUtf8({&unit, 1});
        } else {
            out += next == 't' ? '\t' : next == 'n' ? '\n' : next == 'r' ? '\r' : next;
        }
    }
    return out;
}

// "0x" and eight digits; nothing for anything else.
std::optional<DWORD> IdFrom(const std::string& text) {
    DWORD id = 0;
    const char* const end = text.data() + text.size();
    if (text.size() != 10 || !text.starts_with("0x")) return std::nullopt;
    const auto [stop, error] = std::from_chars(text.data() + 2, end, id, 16);
    return error == std::errc() && stop == end ? std::optional(id) : std::nullopt;
}

// False for a line that the event logger did not write.
bool ReadEvent(const std::string& line, CEvent& event) {
    const std::vector<std::string> fields = Split(line, '\t');
    const std::optional<DWORD> id = fields.size() < 3 ? std::nullopt : IdFrom(fields[1]);
    if (!id) return false;
    event = {};
    event.time = fields[0];
    event.id = fields[1];
    event.message = fields[2];
    for (const CEventKind& kind : kKinds) {
        if (kind.id == *id) event.kind = &kind;
    }
    if (!event.kind) return true;
    if (fields.size() != 3u + 4u + event.kind->hasNew + event.kind->failed) return false;
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
    const wstr path = AuditFilePath();
    if (!path.empty()) return NativePath(path);
    throw CCommandFailure(ExitCode::No,
                          "no file is kept: AuditFile of HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvantis\\EventLog names none "
                          "by its whole path");
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
    const std::filesystem::path file(std::u8string(path.begin(), path.end()));
    if (std::filesystem::status(file, error).type() == std::filesystem::file_type::not_found) {
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
