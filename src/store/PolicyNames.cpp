#include "store/PolicyNames.h"

#include <algorithm>
#include <cstring>

#include "module/Library.h"

namespace {

using Traits = std::char_traits<WCHAR>;

// A counted string says its size in 16 bits of bytes, so longer names are taken in pieces.
constexpr std::size_t kPiece = 0x7FFE;

using CompareProc = LONG(WINAPI*)(PCUNICODE_STRING, PCUNICODE_STRING, BOOLEAN);
using UpcaseProc = NTSTATUS(WINAPI*)(PUNICODE_STRING, PCUNICODE_STRING, BOOLEAN);

// The system's case rule, looked up once and kept for the life of the process.
struct CaseRule {
    HMODULE ntdll = LoadLibraryW(W("ntdll.dll"));
    CompareProc compare = FindExport<CompareProc>(ntdll, "RtlCompareUnicodeString");
    UpcaseProc upcase = FindExport<UpcaseProc>(ntdll, "RtlUpcaseUnicodeString");

    bool IsWhole() const noexcept { return compare && upcase; }
};

const CaseRule& TheCaseRule() noexcept {
    static const CaseRule rule;
    return rule;
}

UNICODE_STRING Counted(wstr_view text) noexcept {
    const auto bytes = static_cast<USHORT>(text.size() * sizeof(WCHAR));
    return {bytes, bytes, const_cast<PWSTR>(text.data())};
}

constexpr WCHAR LowerAscii(WCHAR unit) noexcept {
    return unit >= W('A') && unit <= W('Z') ? static_cast<WCHAR>(unit + 32) : unit;
}

bool EqualAscii(wstr_view a, wstr_view b) noexcept {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](WCHAR x, WCHAR y) { return LowerAscii(x) == LowerAscii(y); });
}

int CompareLowered(wstr_view a, wstr_view b) noexcept {
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        const int difference = LowerAscii(a[i]) - LowerAscii(b[i]);
        if (difference != 0) return difference;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

// Upcases ASCII letters; false when there is a unit beyond ASCII, and the output is then of no use. Without a branch in
// the loop the compiler folds sixteen units at a time.
bool UpcaseAscii(wstr_view name, char* __restrict out) noexcept {
    const WCHAR* __restrict in = name.data();
    const std::size_t size = name.size();
    std::uint16_t all = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const auto unit = static_cast<std::uint16_t>(in[i]);
        all = static_cast<std::uint16_t>(all | unit);
        const auto lower = static_cast<std::uint16_t>(static_cast<std::uint16_t>(unit - 'a') < 26 ? 32 : 0);
        out[i] = static_cast<char>(unit - lower);
    }
    return all < 0x80;
}

wstr FoldUnits(wstr_view name) {
    wstr folded(name.size(), 0);
    const CaseRule& rule = TheCaseRule();
    if (!rule.IsWhole()) {
        std::transform(name.begin(), name.end(), folded.begin(), LowerAscii);
        return folded;
    }
    for (std::size_t at = 0; at < name.size(); at += kPiece) {
        const UNICODE_STRING in = Counted(name.substr(at, kPiece));
        UNICODE_STRING out = {0, in.Length, folded.data() + at};
        rule.upcase(&out, &in, FALSE);
    }
    return folded;
}

// Writes each unit in the way of UTF-8; gives the number of bytes.
std::size_t EncodeUnits(wstr_view units, char* out) noexcept {
    const char* const begin = out;
    for (const unsigned unit : units) {
        if (unit < 0x80) {
            *out++ = static_cast<char>(unit);
            continue;
        }
        if (unit < 0x800) {
            *out++ = static_cast<char>(0xC0 | unit >> 6);
        } else {
            *out++ = static_cast<char>(0xE0 | unit >> 12);
            *out++ = static_cast<char>(0x80 | (unit >> 6 & 0x3F));
        }
        *out++ = static_cast<char>(0x80 | (unit & 0x3F));
    }
    return static_cast<std::size_t>(out - begin);
}

std::uint64_t Mix(std::uint64_t a, std::uint64_t b) noexcept {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

// Folding works unit by unit, so that names of different lengths never are one name: nearly every test ends there.
const AuthPolicyName* FindAuthPolicy(LPCWSTR name) noexcept {
    if (!name) return nullptr;
    static constexpr auto kLengths = [] {
        std::array<std::size_t, kAuthPolicyNames.size()> lengths = {};
        for (std::size_t i = 0; i < lengths.size(); ++i) lengths[i] = wstr_view(kAuthPolicyNames[i].name).size();
        return lengths;
    }();
    const wstr_view text(name);
    for (std::size_t i = 0; i < kLengths.size(); ++i) {
        const AuthPolicyName& policy = kAuthPolicyNames[i];
        if (kLengths[i] == text.size() && CompareNames(text, {policy.name, text.size()}) == 0) return &policy;
    }
    return nullptr;
}

}  // namespace

int CompareNames(LPCWSTR a, LPCWSTR b) noexcept {
    if (!a || !b) return a ? 1 : b ? -1 : 0;
    return CompareNames(wstr_view(a), wstr_view(b));
}

int CompareNames(wstr_view a, wstr_view b) noexcept {
    const CaseRule& rule = TheCaseRule();
    if (!rule.IsWhole()) return CompareLowered(a, b);
    for (;;) {
        const UNICODE_STRING x = Counted(a.substr(0, kPiece));
        const UNICODE_STRING y = Counted(b.substr(0, kPiece));
        const LONG order = rule.compare(&x, &y, TRUE);
        if (order != 0 || (a.size() <= kPiece && b.size() <= kPiece)) return order < 0 ? -1 : order > 0 ? 1 : 0;
        a.remove_prefix(std::min(a.size(), kPiece));
        b.remove_prefix(std::min(b.size(), kPiece));
    }
}

CFoldedName::CFoldedName(wstr_view name) : m_length(name.size()) {
    char* out = m_short;
    if (m_length > kRoom / kUnitBytes) {
        m_long.resize(m_length * kUnitBytes);
        out = m_long.data();
    }
    if (!TheCaseRule().IsWhole() || !UpcaseAscii(name, out)) m_length = EncodeUnits(FoldUnits(name), out);
    m_key = out;
    m_hash = HashOfKey(Key());
}

// A multiply-and-mix hash, 16 bytes a step. It never leaves the process.
std::uint64_t CFoldedName::HashOfKey(std::string_view key) noexcept {
    const char* p = key.data();
    std::size_t left = key.size();
    std::uint64_t hash = left * 0x9E3779B97F4A7C15u;
    std::uint64_t a = 0;
    std::uint64_t b = 0;
    for (; left > 16; p += 16, left -= 16) {
        std::memcpy(&a, p, 8);
        std::memcpy(&b, p + 8, 8);
        hash = Mix(a ^ 0xA0761D6478BD642Fu, b ^ hash);
    }
    a = b = 0;
    if (left >= 8) {
        std::memcpy(&a, p, 8);
        std::memcpy(&b, p + left - 8, 8);
    } else {
        std::memcpy(&a, p, left);
    }
    return Mix(a ^ 0xE7037ED1A0B428DBu, b ^ hash);
}

bool IsSameOrSubPath(wstr_view a, wstr_view b) noexcept {
    const wstr_view longer = a.size() >= b.size() ? a : b;
    const wstr_view shorter = a.size() >= b.size() ? b : a;
    if (longer.size() > shorter.size() && longer[shorter.size()] != W('\\')) return false;
    return EqualAscii(longer.substr(0, shorter.size()), shorter);
}

bool IsAuthPolicyName(LPCWSTR name) noexcept {
    return FindAuthPolicy(name) != nullptr;
}

bool IsUserScopedName(LPCWSTR name) noexcept {
    // Every query asks, and nearly every name differs in its first unit. No letter beyond ASCII is one within.
    const WCHAR first = name ? LowerAscii(*name) : W('\0');
    if (first != W('r') && first != W('k') && first != W('d')) return false;
    const AuthPolicyName* policy = FindAuthPolicy(name);
    return policy && policy->userScoped;
}

LPCWSTR ReduceName(LPCWSTR name) noexcept {
    if (!name) return name;
    // Nearly every name differs in its first unit, so nothing looks for its end before that is known.
    const WCHAR* leaf = name;
    for (const WCHAR unit : AppsPolicyPrefix) {
        if (LowerAscii(*leaf++) != LowerAscii(unit)) return name;
    }
    return *leaf == W('\\') && IsAuthPolicyName(leaf + 1) ? leaf + 1 : name;
}
