// status: what this computer's provider stands on, as it is found now.
#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "Version.h"
#include "module/RegistryKey.h"
#include "svinfo/CacheView.h"
#include "svinfo/Host.h"
#include "svinfo/LocalItems.h"
#include "svinfo/StoreView.h"
#include "svinfo/Text.h"
#include "svinfo/TraceSettingsView.h"
#include "svinfo/Verb.h"

namespace fs = std::filesystem;

namespace {

struct CHive {
    std::string file;  // below the root
    std::uintmax_t bytes;
};

struct CCache {
    std::string path;
    const char* state = "none";
    std::size_t bytes = 0;
    std::size_t items = 0;
};

struct CStatus {
    std::string root;
    const char* rootFault = nullptr;  // what is wrong with it
    std::vector<CHive> hives;
    std::string module;  // empty when it cannot be loaded
    std::vector<std::string> failures;
    bool readable = false;  // the registry; without it the counts tell nothing
    std::size_t localItems = 0;
    std::size_t defaults = 0;
    CLoadReport lastLoad;
    std::string lastSignal;  // empty when there was none, or the home does not tell
    CCache cache;
    CTracing tracing;
};

std::string PathText(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// A hive and the log of what was written to it lately.
void AddHive(std::vector<CHive>& hives, const fs::path& root, const fs::path& file) {
    std::uintmax_t bytes = 0;
    for (const char* part : {"", "-wal"}) {
        std::error_code error;
        fs::path name = file;
        name += part;
        const std::uintmax_t size = fs::file_size(root / name, error);
        if (!error)
            bytes += size;
        else if (!*part)
            return;
    }
    hives.push_back({PathText(file), bytes});
}

std::vector<CHive> FindHives(const fs::path& root) {
    std::vector<CHive> hives;
    AddHive(hives, root, "machine.db");
    std::error_code error;
    std::vector<fs::path> users;
    for (fs::directory_iterator entry(root / "users", error), end; !error && entry != end; entry.increment(error)) {
        if (entry->path().extension() == ".db") users.push_back("users" / entry->path().filename());
    }
    std::sort(users.begin(), users.end());
    for (const fs::path& user : users) AddHive(hives, root, user);
    return hives;
}

// As it lies there.
CCache ReadCache() {
    CCache cache;
    try {
        cache.path = OwnCachePath();
        const CCacheView view(cache.path);
        cache.state = view.IsWhole() ? "good" : "damaged";
        cache.bytes = view.Bytes();
        if (view.IsWhole()) cache.items = view.Items().size();
    } catch (const CCommandFailure& failure) {
        if (failure.Code() != ExitCode::No) cache.state = "unreadable";
    }
    return cache;
}

CStatus ReadStatus() {
    CStatus status;
    status.cache = ReadCache();
    status.root = OvRoot();
    const fs::path root(std::u8string(status.root.begin(), status.root.end()));
    std::error_code error;
    if (!fs::is_directory(root, error)) status.rootFault = fs::exists(root, error) ? "not a folder" : "does not exist";
    status.hives = FindHives(root);
    try {
        status.module = ToUtf8(ModulePath(LoadServerInfoModule().get()));
    } catch (const CCommandFailure& failure) {
        status.failures.push_back(failure.Line());
    }
    try {
        status.localItems = LocalItemNames(LocalLevel::Local).size();
        status.defaults = LocalItemNames(LocalLevel::Default).size();
        status.readable = true;
    } catch (const CCommandFailure& failure) {
        status.failures.push_back(failure.Line());
    }
    status.lastLoad = CStoreView().LastLoad();
    SYSTEMTIME signalled;
    if (OvLastPolicySignal(TRUE, &signalled)) status.lastSignal = TimeText(signalled);
    status.tracing = ReadTracing();
    return status;
}

const char* CauseName(LoadCause cause) noexcept {
    switch (cause) {
        case LoadCause::kFirstQuery:
            return "first-query";
        case LoadCause::kPolicyChange:
            return "policy-change";
        case LoadCause::kReload:
            return "reload";
        case LoadCause::kNone:
            break;
    }
    return "none";
}

json StatusJson(const CStatus& status) {
    json answer = JsonAnswer();
    answer["version"] = kVersion;
    answer["root"] = {{"path", status.root}, {"exists", !status.rootFault}};
    answer["hives"] = json::array();
    for (const CHive& hive : status.hives) answer["hives"].push_back({{"file", hive.file}, {"bytes", hive.bytes}});
    answer["module"] = status.module.empty() ? json(nullptr) : json(status.module);
    const auto count = [&status](std::size_t items) { return status.readable ? json(items) : json(nullptr); };
    answer["items"] = {{"local", count(status.localItems)}, {"default", count(status.defaults)}};
    const CLoadReport& load = status.lastLoad;
    answer["lastLoad"] = {{"number", load.number},
                          {"time", TimeText(load.begun)},
                          {"cause", CauseName(load.cause)},
                          {"milliseconds", load.milliseconds},
                          {"items", load.items},
                          {"created", load.created},
                          {"deleted", load.deleted},
                          {"changed", load.changed}};
    answer["lastSignal"] = status.lastSignal.empty() ? json(nullptr) : json(status.lastSignal);
    answer["cache"] = {{"path", status.cache.path},
                       {"state", status.cache.state},
                       {"bytes", status.cache.bytes},
                       {"items", status.cache.items}};
    answer["tracing"] = {{"on", status.tracing.on},
                         {"toFile", status.tracing.toFile},
                         {"verbosity", status.tracing.verbosity},
                         {"path", status.tracing.Place().empty() ? json(nullptr) : json(status.tracing.Place())}};
    return answer;
}

std::string CacheText(const CCache& cache) {
    const std::string size = ", " + CountText(cache.bytes, "byte", "bytes");
    const bool isGood = cache.state == std::string_view("good");
    return cache.path + " (" + cache.state + (cache.state == std::string_view("none") ? "" : size) +
           (isGood ? ", " + CountText(cache.items, "item", "items") : "") + ")";
}

std::string TracingText(const CTracing& tracing) {
    if (!tracing.on) return "off";
    return std::string(tracing.toFile ? "on" : "on, but not to a file") + ", verbosity " +
           std::to_string(tracing.verbosity) + (tracing.Place().empty() ? "" : ", " + tracing.Place());
}

std::string LoadText(const CLoadReport& load) {
    return "number " + std::to_string(load.number) + ", " + CauseName(load.cause) + ", " + TimeText(load.begun) + ", " +
           std::to_string(load.milliseconds) + " ms: " + std::to_string(load.items) + " items, " +
           std::to_string(load.created) + " created, " + std::to_string(load.deleted) + " deleted, " +
           std::to_string(load.changed) + " changed";
}

CTable StatusTable(const CStatus& status) {
    CTable table{{"WHAT", "IS"}, {}};
    const auto add = [&table](std::string what, std::string is, Tone tone = Tone::Plain) {
        table.rows.push_back({{std::move(what), Tone::Plain}, {std::move(is), tone}});
    };
    add("version", kVersion);
    const std::string fault = status.rootFault ? std::string(" (") + status.rootFault + ")" : std::string();
    add("root", status.root + fault, fault.empty() ? Tone::Plain : Tone::Notice);
    for (const CHive& hive : status.hives) add("hive " + hive.file, std::to_string(hive.bytes) + " bytes");
    add("module", status.module.empty() ? "not loaded" : status.module,
        status.module.empty() ? Tone::Bad : Tone::Plain);
    const auto count = [&status](std::size_t items) { return status.readable ? std::to_string(items) : "unknown"; };
    add("local items", count(status.localItems));
    add("defaults", count(status.defaults));
    add("last load", LoadText(status.lastLoad));
    add("last signal", status.lastSignal.empty() ? "none" : status.lastSignal);
    add("cache", CacheText(status.cache), status.cache.state == std::string_view("damaged") ? Tone::Bad : Tone::Plain);
    add("tracing", TracingText(status.tracing));
    return table;
}

ExitCode Status(COutput& output) {
    const CStatus status = ReadStatus();
    output.Style().json ? output.Json(StatusJson(status)) : output.Table(StatusTable(status));
    for (const std::string& failure : status.failures) output.Problem("svinfo: " + failure);
    return status.failures.empty() ? ExitCode::Ok : ExitCode::Failed;
}

}  // namespace

CAction DefineStatus(CArguments&) {
    return [](COutput& output) { return Status(output); };
}
