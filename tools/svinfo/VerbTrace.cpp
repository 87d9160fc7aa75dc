// trace on, trace off, trace status: the settings of tracing, and the files there are.
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "diagnostics/TraceFileName.h"
#include "diagnostics/TraceSettings.h"
#include "module/RegBatch.h"
#include "svinfo/FileIo.h"
#include "svinfo/Host.h"
#include "svinfo/Text.h"
#include "svinfo/TraceSettingsView.h"
#include "svinfo/Verb.h"

namespace fs = std::filesystem;

namespace {

struct COnArguments {
    std::optional<std::string> verbosity, path;
};

DWORD VerbosityFrom(const std::string& text) {
    DWORD number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && stop == text.data() + text.size() && number <= 0x7FFFFFFF) return number;
    throw CCommandFailure(ExitCode::Usage, "--verbosity: found " + Quoted(text) + ", expected a number, 0 or 10");
}

fs::path PathOf(const std::string& text) {
    return std::u8string(text.begin(), text.end());
}
std::string TextOf(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// The folder in full: a process reads it wherever it is.
wstr FolderFrom(const std::string& text) {
    std::error_code error;
    const fs::path folder = fs::absolute(PathOf(text), error);
    const wstr wide = WideArgument(error ? text : TextOf(folder), "--path");
    if (text.empty() || wide.size() >= MAX_PATH) {
        throw CCommandFailure(ExitCode::Usage,
                              "--path: found " + Quoted(text) + ", expected a folder of at most 259 characters");
    }
    return wide;
}

void Check(LSTATUS error) {
    if (error) throw RegistryFailureOf("write the trace settings", error);
}

// All of them or none.
template <class Put>
void PutSettings(Put put) {
    CRegBatch batch;
    Check(batch.Begin());
    CRegistryKey key;
    Check(key.Create(HKEY_LOCAL_MACHINE, OVTraceNS::kTracingKey, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, nullptr));
    put(key);
    Check(batch.Commit());
}

std::string PlaceText(const CTracing& tracing) {
    if (!tracing.file.empty()) return tracing.file;
    return "files in " + (tracing.folder.empty() ? std::string("the module's folder") : tracing.folder);
}

ExitCode On(const COnArguments& arguments, COutput& output) {
    const CTracing before = ReadTracing();
    const DWORD verbosity = arguments.verbosity ? VerbosityFrom(*arguments.verbosity) : before.verbosity;
    const std::optional<wstr> folder = arguments.path ? std::optional(FolderFrom(*arguments.path)) : std::nullopt;
    PutSettings([&](CRegistryKey& key) {
        Check(key.SetDword(W("DoTrace"), 1));
        if (!before.toFile) Check(key.SetDword(W("TraceToFile"), 1));
        if (arguments.verbosity) Check(key.SetDword(W("Verbosity"), verbosity));
        if (folder) Check(key.SetString(W("TracePath"), folder->c_str()));
        if (folder) RegDeleteValueW(key.Get(), W("FileName"));  // which would stand over it
    });
    const CTracing now = ReadTracing();
    output.Line("tracing is on: verbosity " + std::to_string(now.verbosity) + ", " + EscapeControls(PlaceText(now)));
    output.Note(
        "Running processes notice within 30 seconds, at their next call. Each makes its file with its first record and "
        "keeps it to its end.");
    if (before.on && before.verbosity != now.verbosity) {
        output.Note(
            "It was on already, and a process that traces does not notice a change of the verbosity alone: turn "
            "tracing "
            "off, wait 30 seconds, and turn it on again.");
    }
    return ExitCode::Ok;
}

ExitCode Off(COutput& output) {
    const bool was = ReadTracing().on;
    if (was) {
        PutSettings([](CRegistryKey& key) { Check(key.SetDword(W("DoTrace"), 0)); });
    }
    output.Line("tracing is off");
    if (was)
        output.Note(
            "Running processes notice within 30 seconds, at their next call. Their files stay, and stay theirs to "
            "their end.");
    return ExitCode::Ok;
}

struct CTraceFileInfo {
    std::string path;
    std::uintmax_t bytes;
    fs::file_time_type written;
};

// The files that are where they would be made now, the newest first.
std::vector<CTraceFileInfo> FindFiles(const CTracing& tracing) {
    std::vector<CTraceFileInfo> files;
    const auto add = [&files](const fs::path& path) {
        std::error_code error;
        const std::uintmax_t bytes = fs::file_size(path, error);
        if (!error) files.push_back({TextOf(path), bytes, fs::last_write_time(path, error)});
    };
    if (!tracing.file.empty()) {
        add(PathOf(tracing.file));
        return files;
    }
    fs::path folder = PathOf(tracing.folder);
    if (tracing.folder.empty()) {
        try {
            folder = PathOf(ToUtf8(ModulePath(LoadServerInfoModule().get()))).parent_path();
        } catch (const CCommandFailure&) {
            return files;
        }
    }
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (at->path().extension() == ".trc3") add(at->path());
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.written > b.written; });
    return files;
}

ExitCode Status(COutput& output) {
    const CTracing tracing = ReadTracing();
    const std::vector<CTraceFileInfo> files = FindFiles(tracing);
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["on"] = tracing.on;
        answer["toFile"] = tracing.toFile;
        answer["newFileAlways"] = tracing.anew;
        answer["verbosity"] = tracing.verbosity;
        answer["file"] = tracing.file.empty() ? json(nullptr) : json(tracing.file);
        answer["folder"] = tracing.folder.empty() ? json(nullptr) : json(tracing.folder);
        answer["files"] = json::array();
        for (const CTraceFileInfo& file : files)
            answer["files"].push_back({{"path", file.path}, {"bytes", file.bytes}});
        output.Json(answer);
        return tracing.on ? ExitCode::Ok : ExitCode::No;
    }
    output.Line(!tracing.on       ? "tracing is off"
                : !tracing.toFile ? "tracing is on, and goes nowhere: TraceToFile is not 1"
                                  : "tracing is on: verbosity " + std::to_string(tracing.verbosity) + ", " +
                                        EscapeControls(PlaceText(tracing)));
    if (tracing.on && !tracing.anew) output.Line("processes go on with the file that is there");
    CTable table{{"FILE", "BYTES"}, {}};
    for (const CTraceFileInfo& file : files) {
        table.rows.push_back({{file.path, Tone::Strong}, {std::to_string(file.bytes), Tone::Plain}});
    }
    if (!files.empty()) output.Table(table);
    return tracing.on ? ExitCode::Ok : ExitCode::No;
}

}  // namespace

CTracing ReadTracing() {
    CTracing tracing;
    CRegistryKey key;
    if (!OVTraceNS::OpenTracingKey(key)) return tracing;
    DWORD number = 0;
    tracing.on = key.QueryDword(W("DoTrace"), number) == ERROR_SUCCESS && number != 0;
    tracing.toFile = key.QueryDword(W("TraceToFile"), number) != ERROR_SUCCESS || number == 1;
    tracing.anew = key.QueryDword(W("NewFileAlways"), number) != ERROR_SUCCESS || number != 0;
    if (key.QueryDword(W("Verbosity"), number) == ERROR_SUCCESS) tracing.verbosity = number;
    const auto text = [&](LPCWSTR name) {
        WCHAR path[MAX_PATH + 1] = {};
        DWORD length = MAX_PATH;
        return key.QueryString(name, path, length) == ERROR_SUCCESS ? NativePath(path) : std::string();
    };
    tracing.file = text(W("FileName"));
    tracing.folder = text(W("TracePath"));
    return tracing;
}

CAction DefineTraceOn(CArguments& arguments) {
    const auto given = std::make_shared<COnArguments>();
    arguments.Optional("--verbosity", given->verbosity);
    arguments.Optional("--path", given->path);
    return [given](COutput& output) { return On(*given, output); };
}

CAction DefineTraceOff(CArguments&) {
    return [](COutput& output) { return Off(output); };
}

CAction DefineTraceStatus(CArguments&) {
    return [](COutput& output) { return Status(output); };
}
