// set and delete: a local value, written through the component under its access check.
#include <charconv>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "security/Sid.h"
#include "store/PolicyNames.h"
#include "svinfo/Caller.h"
#include "svinfo/Host.h"
#include "svinfo/Levels.h"
#include "svinfo/LocalItems.h"
#include "svinfo/Text.h"
#include "svinfo/Verb.h"

namespace {

enum class ValueKind { kDword, kQword, kString, kMasks };

struct CKindName {
    const char* name;   // on the command line
    const char* shown;  // as items tell their type
    ValueKind kind;
};
constexpr CKindName kKinds[] = {{"dword", "dword", ValueKind::kDword},
                                {"qword", "qword", ValueKind::kQword},
                                {"string", "string", ValueKind::kString},
                                {"masks", "array", ValueKind::kMasks}};

// Decimal, or with 0x; nothing for anything else.
std::optional<ULONGLONG> NumberFrom(std::string_view text) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    ULONGLONG number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

ULONGLONG NumberArgument(const std::string& text, ULONGLONG largest) {
    const std::optional<ULONGLONG> number = NumberFrom(text);
    if (number && *number <= largest) return *number;
    throw CCommandFailure(ExitCode::Usage, "VALUE " + Quoted(text) + ": expected a number of " +
                                               (largest == MAXDWORD ? "32" : "64") + " bits, in decimal or with 0x");
}

// Masks with commas or blanks between them.
std::vector<std::string> MasksOf(const std::string& text) {
    std::vector<std::string> masks;
    for (std::size_t at = 0; (at = text.find_first_not_of(", ", at)) != text.npos;) {
        const std::size_t end = std::min(text.find_first_of(", ", at), text.size());
        masks.push_back(text.substr(at, end - at));
        at = end;
    }
    return masks;
}

// By the look of the value: what the item could be given.
ValueKind KindByLook(bool isPolicy, const std::string& text) {
    const std::vector<std::string> parts = MasksOf(text);
    const bool areNumbers =
        !parts.empty() && std::all_of(parts.begin(), parts.end(), [](auto& part) { return NumberFrom(part); });
    const std::optional<ULONGLONG> number = NumberFrom(text);
    if (number && *number <= MAXDWORD) return ValueKind::kDword;
    if (isPolicy && areNumbers) return ValueKind::kMasks;
    if (!number) return ValueKind::kString;
    throw CCommandFailure(ExitCode::Usage, "VALUE " + Quoted(text) +
                                               ": found a number of more than 32 bits, which an item cannot be given; "
                                               "with the type string it is text");
}

// The type that is named; else that which the item has; else by the look of the value.
ValueKind KindFor(const std::optional<std::string>& named, const CItem& item, const std::string& text) {
    const bool isPolicy = IsAuthPolicyName(ReduceName(item.Name().c_str()));
    for (const CKindName& entry : kKinds) {
        if (named ? *named != entry.name : std::string_view(item.TypeName()) != entry.shown) continue;
        if (entry.kind == ValueKind::kMasks && !isPolicy) {
            throw CCommandFailure(ExitCode::Usage, Quoted(item.Name()) + " is none of the policies that are masks");
        }
        if (named || entry.kind != ValueKind::kQword) return entry.kind;
    }
    if (!named) return KindByLook(isPolicy, text);
    throw CCommandFailure(ExitCode::Usage, "TYPE " + Quoted(*named) + ": expected dword, qword, string or masks");
}

CPolicyValue ValueArgument(ValueKind kind, const std::string& text) {
    CPolicyValue value;
    switch (kind) {
        case ValueKind::kDword:
            value.SetNumber(OV_TYPE_DWORD, NumberArgument(text, MAXDWORD));
            break;
        case ValueKind::kQword:
            value.SetNumber(OV_TYPE_QWORD, NumberArgument(text, ~0ull));
            break;
        case ValueKind::kString:
            value.SetString(WideArgument(text, "VALUE").c_str());
            break;
        case ValueKind::kMasks:
            if (MasksOf(text).empty()) {
                throw CCommandFailure(ExitCode::Usage, "VALUE " + Quoted(text) + ": expected one mask or more");
            }
            value.SetNumber(OV_TYPE_ARRAY, 0);
            for (const std::string& mask : MasksOf(text)) {
                CPolicyValue element;
                element.SetNumber(OV_TYPE_QWORD, NumberArgument(mask, ~0ull));
                value.Append(std::move(element));
            }
            break;
    }
    return value;
}

// Without a caller of its own, a thread acts for whoever runs the tool.
class CActingSelf {
  public:
    CActingSelf() : m_acts(CallerSid().empty() && ImpersonateSelf(SecurityImpersonation)) {}
    ~CActingSelf() {
        if (m_acts) RevertToSelf();
    }
    CActingSelf(const CActingSelf&) = delete;
    CActingSelf& operator=(const CActingSelf&) = delete;

  private:
    const bool m_acts;
};

// "HOST\\account (S-1-...)"
std::string CallerText() {
    const wstr text = CallerSid();
    if (text.empty()) return "nobody who is known";
    const CStringSid sid(text.c_str());
    if (sid.AccountName().empty()) return ToUtf8(text);
    return ToUtf8(sid.Domain() + W('\\') + sid.AccountName()) + " (" + ToUtf8(text) + ")";
}

// What the local key holds of an item: the form that answers there, and where it lies.
struct CLocal {
    bool isThere = false;
    bool isDamaged = false;
    wstr key;
    CPolicyValue value;
};

CLocal ReadLocal(const wstr& name) {
    CLocal local;
    for (LocalHolding& holding : LocalHoldingsOf(ReduceName(name.c_str()))) {
        if (holding.level != LocalLevel::Local || (!holding.found && !holding.damaged) || local.isThere) continue;
        local = {true, !holding.found, holding.key, std::move(holding.value)};
    }
    return local;
}

CItem ItemOf(const wstr& name, const CLocal& local) {
    CItem item(name);
    item.Copy(local.value.Raw(), S_FALSE);
    return item;
}

std::string LinesText(const CItem& item) {
    std::string text;
    for (const std::string& line : item.Lines()) text += (text.empty() ? "" : ", ") + line;
    return text;
}

std::string ValueText(const wstr& name, const CLocal& local) {
    return !local.isThere ? "(none)" : local.isDamaged ? "(no value)" : LinesText(ItemOf(name, local));
}

json ValueJson(const wstr& name, const CLocal& local) {
    if (!local.isThere) return nullptr;
    const CItem item = ItemOf(name, local);
    return {{"type", item.TypeName()}, {"value", item.Json()}};
}

// Only who may not write is told nothing by the component's deletions.
ExitCode NotDeleted(const std::string& shown, const wstr& name, const CLocal& after, COutput& output) {
    CRegistryKey key;
    const LONG error = key.Open(HKEY_LOCAL_MACHINE, after.key.c_str(), KEY_SET_VALUE);
    output.Problem("svinfo: " + shown + ": " + MachineKeyText(after.key) + " still holds " +
                   EscapeControls(ValueText(name, after)) +
                   (error ? ": " + ResultText(HRESULT_FROM_WIN32(static_cast<DWORD>(error))) : ""));
    return error == ERROR_ACCESS_DENIED ? ExitCode::Denied : ExitCode::Failed;
}

void TellChange(const wstr& name, const CLocal& before, const CLocal& after, const CLevel* hider, COutput& output) {
    if (output.Style().json) {
        json answer = JsonAnswer();
        answer["name"] = ToUtf8(name);
        answer["old"] = ValueJson(name, before);
        answer["new"] = ValueJson(name, after);
        answer["hiddenBy"] = hider ? OriginJson(hider->kind, hider->place) : json(nullptr);
        output.Json(answer);
        return;
    }
    CTable table{{"NAME", "OLD", "NEW"}, {}};
    table.rows.push_back({{ToUtf8(name), Tone::Strong},
                          {ValueText(name, before), Tone::Plain},
                          {ValueText(name, after), after.isThere ? Tone::Good : Tone::Notice}});
    output.Table(table);
}

// Runs the operation and tells what became of the local value, and of the answer. `write` calls the component, and
// gives what it is to hold then; no value for a deletion.
template <class Write>
ExitCode Change(const char* verb, const wstr& name, COutput& output, Write write) {
    if (name.empty()) throw CCommandFailure(ExitCode::Usage, "NAME '': expected the name of an item");
    const std::string shown = EscapeControls(ToUtf8(name));
    const CHost host;
    const CLocal before = ReadLocal(name);
    CPolicyItem wanted;
    {
        const CActingSelf self;
        const HRESULT hr = write(host.Info(), wanted.value);
        if (hr == E_ACCESSDENIED) {
            throw CCommandFailure(ExitCode::Denied,
                                  std::string(verb) + " " + shown + ": " + ResultText(hr) + " to " + CallerText());
        }
        if (FAILED(hr)) {
            throw CCommandFailure(ExitCode::Failed, FailureOf(std::string(verb) + " " + shown, hr).Line());
        }
    }
    const bool deletes = wanted.value.Type() == OV_TYPE_NONE;
    const CLocal after = ReadLocal(name);
    CSourceLedger ledger;
    const CStoreView view(&ledger);
    const std::vector<CLevel> levels = LevelsOf(ReduceName(name.c_str()), ledger, view);
    const CLevel* const winner = WinnerOf(levels);
    const bool isManaged = winner && winner->held.State() == ItemState::Managed;
    TellChange(name, before, after, isManaged ? winner : nullptr, output);
    if (isManaged) {
        output.Problem("svinfo: " + shown + ": " + winner->kind + " (" + PlaceText(winner->place) +
                       ") hides the local value: " + EscapeControls(LinesText(winner->held)));
        return ExitCode::Hidden;
    }
    if (deletes && after.isThere) return NotDeleted(shown, name, after, output);
    if (deletes) return before.isThere ? ExitCode::Ok : ExitCode::No;
    if (!after.isThere || !ItemsEqual(wanted, {name, after.value})) {
        output.Problem("svinfo: " + shown + ": written, but " + MachineKeyText(after.key) +
                       " answers: " + EscapeControls(ValueText(name, after)));
        return ExitCode::Hidden;
    }
    return ExitCode::Ok;
}

struct CSetOptions {
    std::string name;
    std::vector<std::string> rest;  // the value, with its type in front or without
};

ExitCode Set(const CSetOptions& options, COutput& output) {
    if (options.rest.size() > 2) throw CCommandFailure(ExitCode::Usage, "set: expected NAME [TYPE] VALUE");
    const wstr name = ItemNameArgument(options.name);
    const std::string& text = options.rest.back();
    const auto named = options.rest.size() == 2 ? std::optional(options.rest.front()) : std::nullopt;
    return Change("set", name, output, [&](IOVServerInfo& info, CPolicyValue& value) {
        const std::vector<CItem> items = AskItems(info, {name}, OV_QUERY);
        value = ValueArgument(KindFor(named, items[0], text), text);
        return info.SetItem(name.c_str(), &value.Raw());
    });
}

}  // namespace

CAction DefineSet(CArguments& arguments) {
    const auto options = std::make_shared<CSetOptions>();
    arguments.Required("NAME", options->name);
    arguments.Required("VALUE", options->rest);
    return [options](COutput& output) { return Set(*options, output); };
}

CAction DefineDelete(CArguments& arguments) {
    const auto name = std::make_shared<std::string>();
    arguments.Required("NAME", *name);
    return [name](COutput& output) {
        const wstr item = ItemNameArgument(*name);
        return Change("delete", item, output,
                      [&](IOVServerInfo& info, CPolicyValue&) { return info.DeleteItem(item.c_str()); });
    };
}
