// watch: changes as they come.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>

#include "store/PolicyNames.h"
#include "svinfo/Host.h"
#include "svinfo/Levels.h"
#include "svinfo/StoreView.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

struct CWatchOptions {
    std::vector<std::string> filters;
    bool once = false;
    double timeout = 0;  // seconds; 0: for ever
};

struct CChange {
    SYSTEMTIME when;
    CItem before;
    CItem now;
};
using CChanges = std::vector<CChange>;

// What the callbacks, on the component's threads, hand to the one that writes.
class CChangeQueue {
  public:
    void Put(CChanges changes) {
        const std::lock_guard lock(m_mutex);
        m_batches.push_back(std::move(changes));
        m_more.notify_one();
    }
    // Nothing when the time has come.
    std::optional<CChanges> Take(std::optional<std::chrono::steady_clock::time_point> until) {
        std::unique_lock lock(m_mutex);
        const auto more = [this] { return !m_batches.empty(); };
        if (!until) {
            m_more.wait(lock, more);
        } else if (!m_more.wait_until(lock, *until, more)) {
            return std::nullopt;
        }
        CChanges changes = std::move(m_batches.front());
        m_batches.pop_front();
        return changes;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_more;
    std::deque<CChanges> m_batches;
};

CItem CopyOf(const OV_SERVER_INFO_EX& record) {
    CItem item(record.name);
    item.Copy(record.value, record.hr);
    return item;
}

// One filter's subscriber. It passes over what an earlier filter tells already.
class CWatcher final : public IOVInfoChangeCallback {
  public:
    CWatcher(CChangeQueue& queue, std::vector<wstr> earlier) : m_queue(queue), m_earlier(std::move(earlier)) {}

    // What is told before this is no change but what the store came up with.
    void Begin() noexcept { m_begun = true; }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (!object) return E_POINTER;
        *object = iid == IID_IUnknown || iid == IID_IOVInfoChangeCallback ? this : nullptr;
        return *object ? S_OK : E_NOINTERFACE;
    }
    // Lives as long as the verb, longer than the object that it is registered with.
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    STDMETHODIMP OnInfoChanged(DWORD count, const OV_SERVER_INFO_EX* before, const OV_SERVER_INFO_EX* now) override {
        if (!m_begun) return S_OK;
        try {
            CChanges changes;
            SYSTEMTIME when;
            GetLocalTime(&when);
            for (DWORD i = 0; i < count; ++i) {
                if (!IsToldAlready(now[i].name)) changes.push_back({when, CopyOf(before[i]), CopyOf(now[i])});
            }
            if (!changes.empty()) m_queue.Put(std::move(changes));
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

  private:
    bool IsToldAlready(LPCWSTR name) const noexcept {
        for (const wstr& filter : m_earlier) {
            if (filter.empty() || IsSameOrSubPath(filter, name)) return true;
        }
        return false;
    }

    CChangeQueue& m_queue;
    std::vector<wstr> m_earlier;
    std::atomic<bool> m_begun{false};
};

std::string ValueText(const CItem& item) {
    std::string text;
    for (const std::string& line : item.Lines()) text += (text.empty() ? "" : ", ") + line;
    return item.State() == ItemState::Managed || item.State() == ItemState::Local ? text : "(none)";
}

json ChangeJson(const CChange& change, const CLevel* winner) {
    json answer = JsonAnswer();
    answer["time"] = TimeText(change.when);
    answer["old"] = {{"type", change.before.TypeName()}, {"value", change.before.Json()}};
    answer["item"] = ItemJson(change.now);
    answer["item"]["origin"] = winner ? OriginJson(winner->kind, winner->place) : json(nullptr);
    return answer;
}

void Show(const CChanges& changes, COutput& output) {
    CTable table{{}, {}};
    CSourceLedger ledger;
    const CStoreView view(&ledger);  // where each comes from, by now
    for (const CChange& change : changes) {
        const std::vector<CLevel> levels = LevelsOf(change.now.Name(), ledger, view);
        const CLevel* const winner = WinnerOf(levels);
        if (output.Style().json) {
            output.Json(ChangeJson(change, winner));
            continue;
        }
        table.rows.push_back({{TimeText(change.when), Tone::Faint},
                              {ToUtf8(change.now.Name()), Tone::Strong},
                              {ValueText(change.before), Tone::Plain},
                              {ValueText(change.now), Tone::Plain},
                              {StateName(change.now.State()), ToneOf(change.now.State())},
                              {winner ? winner->kind : "", Tone::Faint}});
    }
    if (!table.rows.empty()) output.Table(table);
    output.Finish();
}

ExitCode Watch(const CWatchOptions& options, COutput& output) {
    std::vector<wstr> filters;
    for (const std::string& filter : options.filters) filters.push_back(ItemNameArgument(filter));
    if (filters.empty()) filters.emplace_back();

    CChangeQueue queue;
    std::vector<std::unique_ptr<CWatcher>> watchers;
    const CHost host;  // released before what its callbacks point to
    const CInterface<IOVServerInfoNotify> notify = host.Query<IOVServerInfoNotify>(IID_IOVServerInfoNotify);
    HRESULT hr = host.Info().GetInfo(0, nullptr);
    for (std::size_t i = 0; SUCCEEDED(hr) && i < filters.size(); ++i) {
        const auto first = filters.begin();
        watchers.push_back(
            std::make_unique<CWatcher>(queue, std::vector<wstr>(first, first + static_cast<std::ptrdiff_t>(i))));
        DWORD cookie = 0;
        hr = notify->RegisterNotification(filters[i].c_str(), watchers.back().get(), &cookie);
    }
    if (FAILED(hr)) throw CCommandFailure(ExitCode::Failed, FailureOf("watch the component", hr).Line());
    for (const auto& watcher : watchers) watcher->Begin();
    output.Note("watching; changes of the machine's policy are shown as they come");

    std::optional<std::chrono::steady_clock::time_point> until;
    if (options.timeout > 0) {
        until = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                       std::chrono::duration<double>(options.timeout));
    }
    bool seen = false;
    while (const std::optional<CChanges> changes = queue.Take(until)) {
        Show(*changes, output);
        seen = true;
        if (options.once) break;
    }
    return seen ? ExitCode::Ok : ExitCode::No;
}

}  // namespace

CAction DefineWatch(CArguments& arguments) {
    const auto options = std::make_shared<CWatchOptions>();
    arguments.Optional("FILTER", options->filters);
    arguments.Flag("--once", options->once);
    arguments.Seconds("--timeout", options->timeout);
    return [options](COutput& output) { return Watch(*options, output); };
}
