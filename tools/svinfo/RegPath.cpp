#include "svinfo/RegPath.h"

#include <algorithm>

#include "svinfo/Failure.h"
#include "svinfo/Text.h"

namespace {

constexpr std::size_t kMaxComponent = 256;
constexpr WCHAR kSeparator = W('\\');

const CRegRoot kRoots[] = {
    {W("HKEY_LOCAL_MACHINE"), W("HKLM"), HKEY_LOCAL_MACHINE},
    {W("HKEY_CURRENT_USER"), W("HKCU"), HKEY_CURRENT_USER},
    {W("HKEY_CLASSES_ROOT"), W("HKCR"), HKEY_CLASSES_ROOT},
    {W("HKEY_USERS"), W("HKU"), HKEY_USERS},
};

// Root names are ASCII.
bool SameRootName(wstr_view text, wstr_view name) noexcept {
    const auto upper = [](WCHAR c) { return c >= 'a' && c <= 'z' ? static_cast<WCHAR>(c - 'a' + 'A') : c; };
    return std::equal(text.begin(), text.end(), name.begin(), name.end(),
                      [&](WCHAR a, WCHAR b) { return upper(a) == upper(b); });
}

const CRegRoot* FindRoot(wstr_view text, RootNames names) noexcept {
    for (const CRegRoot& root : kRoots) {
        if (SameRootName(text, root.name)) return &root;
        if (names == RootNames::LongAndShort && SameRootName(text, root.shortName)) return &root;
    }
    return nullptr;
}

std::string RootNamesText(RootNames names) {
    std::string text;
    for (const CRegRoot& root : kRoots) {
        if (!text.empty()) text += &root == std::end(kRoots) - 1 ? " or " : ", ";
        text += ToUtf8(names == RootNames::Long ? root.name : root.shortName);
    }
    return names == RootNames::Long ? text : text + ", or a long name";
}

}  // namespace

wstr CRegPath::Full() const {
    wstr full = root->name;
    if (!below.empty()) (full += kSeparator) += below;
    return full;
}

CRegPath ParseRegPath(wstr_view text, RootNames names) {
    const std::size_t rootEnd = std::min(text.find(kSeparator), text.size());
    CRegPath path;
    path.root = FindRoot(text.substr(0, rootEnd), names);
    if (!path.root) throw CBadRegPath{0, Quoted(text.substr(0, rootEnd)), RootNamesText(names)};
    for (std::size_t at = rootEnd; at < text.size();) {
        const std::size_t start = at + 1;  // behind a separator
        at = std::min(text.find(kSeparator, start), text.size());
        const wstr_view component = text.substr(start, at - start);
        if (component.empty()) {
            // Empty at the end or in the middle is a separator too many; right behind the root it names no key.
            if (path.below.empty() && text.find_first_not_of(kSeparator, start) != wstr_view::npos) {
                throw CBadRegPath{start, "a second backslash behind the root", "the name of a key"};
            }
            continue;
        }
        if (component.size() > kMaxComponent) {
            throw CBadRegPath{start, "a name of " + std::to_string(component.size()) + " characters",
                              "at most " + std::to_string(kMaxComponent)};
        }
        if (const std::size_t nul = component.find(WCHAR(0)); nul != wstr_view::npos) {
            throw CBadRegPath{start + nul, "a NUL", "the name of a key"};
        }
        if (!path.below.empty()) path.below += kSeparator;
        path.below += component;
    }
    return path;
}

CRegPath KeyArgument(const std::string& argument) {
    try {
        return ParseRegPath(WideArgument(argument, "KEY"), RootNames::LongAndShort);
    } catch (const CBadRegPath& bad) {
        throw CCommandFailure(ExitCode::Usage,
                              "KEY " + Quoted(argument) + ": found " + bad.found + ", expected " + bad.expected);
    }
}

wstr ValueArgument(const std::string& argument) {
    wstr name = WideArgument(argument, "VALUE");
    if (name == W("@")) name.clear();
    if (name.size() > kMaxValueName) {
        throw CCommandFailure(ExitCode::Usage, "VALUE: found a name of " + std::to_string(name.size()) +
                                                   " characters, expected at most " + std::to_string(kMaxValueName));
    }
    return name;
}

std::string ValueText(const CRegPath& key, const wstr& name) {
    const std::string full = EscapeControls(ToUtf8(key.Full()));
    return name.empty() ? full + " default value" : full + " value " + Quoted(wstr_view(name));
}
