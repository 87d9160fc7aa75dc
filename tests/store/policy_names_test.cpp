#include "store/PolicyNames.h"

#include <gtest/gtest.h>

#include <random>

namespace {

int Sign(int number) {
    return number < 0 ? -1 : number > 0 ? 1 : 0;
}

TEST(PolicyNames, CompareOrdersByUpcasedUnits) {
    const struct {
        const char* why;
        LPCWSTR a, b;
        int order;
    } rows[] = {
        {"two nulls", nullptr, nullptr, 0},
        {"null before the empty name", nullptr, W(""), -1},
        {"case of ASCII", W("LogonPolicy"), W("LOGONPOLICY"), 0},
        {"letters count as capitals, so _ is behind them", W("z"), W("_"), -1},
        {"a prefix is smaller", W("ab"), W("abc"), -1},
        {"case beyond ASCII", W("\u03C3"), W("\u03A3"), 0},
        {"final sigma is its own", W("\u03C2"), W("\u03A3"), 1},
        {"nothing outside ASCII folds into it", W("\u0131"), W("I"), 1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Sign(CompareNames(row.a, row.b)), row.order) << row.why;
        EXPECT_EQ(Sign(CompareNames(row.b, row.a)), -row.order) << row.why;
    }
}

TEST(PolicyNames, LongNamesAreComparedAndFoldedToTheirEnd) {
    // A counted string holds 32,767 units; names beyond that are taken in pieces.
    wstr a(100'000, W('x'));
    wstr b(100'000, W('X'));
    a[40'000] = b[40'000] = W('\u00E9');
    EXPECT_EQ(CompareNames(a.c_str(), b.c_str()), 0);
    EXPECT_EQ(CFoldedName(a).Key(), CFoldedName(b).Key());
    b.back() = W('y');
    EXPECT_LT(CompareNames(a.c_str(), b.c_str()), 0);
    EXPECT_NE(CFoldedName(a).Key(), CFoldedName(b).Key());
}

TEST(PolicyNames, FoldedNamesAreEqualExactlyWhenTheNamesAre) {
    std::mt19937 random(20261122);
    const WCHAR units[] = {W('a'), W('A'), W('\\'), W('_'), W('\u00E9'), W('\u00C9'), W('\u0131'), W('I'), W('\u0434')};
    std::uniform_int_distribution<std::size_t> unit(0, std::size(units) - 1);
    std::uniform_int_distribution<std::size_t> length(0, 4);
    for (int round = 0; round < 20'000; ++round) {
        wstr a(length(random), 0), b(length(random), 0);
        for (WCHAR& c : a) c = units[unit(random)];
        for (WCHAR& c : b) c = units[unit(random)];
        const CFoldedName x(a), y(b);
        ASSERT_EQ(x.Key() == y.Key(), CompareNames(a.c_str(), b.c_str()) == 0);
        ASSERT_EQ(x.Key() < y.Key(), CompareNames(a.c_str(), b.c_str()) < 0);
        if (x.Key() == y.Key()) {
            ASSERT_EQ(x.Hash(), y.Hash());
        }
    }
}

TEST(PolicyNames, SameOrSubPath) {
    const struct {
        const char* why;
        wstr a, b;
        bool related;
    } rows[] = {
        {"a child", W("A\\B"), W("A\\B\\C"), true},
        {"itself in other case", W("a\\b"), W("A\\B"), true},
        {"a sibling with the same beginning", W("A\\B"), W("A\\BC"), false},
        {"another path", W("A\\B"), W("C\\B\\D"), false},
        {"the empty path and a name", W(""), W("A"), false},
        {"the empty path and a rooted name", W(""), W("\\A"), true},
        {"two empty paths", W(""), W(""), true},
        {"only ASCII letters fold", W("\u00E9"), W("\u00C9"), false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(IsSameOrSubPath(row.a, row.b), row.related) << row.why;
        EXPECT_EQ(IsSameOrSubPath(row.b, row.a), row.related) << row.why << ", turned round";
    }
}

TEST(PolicyNames, WellKnownNames) {
    EXPECT_TRUE(IsAuthPolicyName(W("customizationPOLICY")));
    EXPECT_FALSE(IsAuthPolicyName(W("LogonPolic")));
    EXPECT_FALSE(IsAuthPolicyName(W("")));
    EXPECT_FALSE(IsAuthPolicyName(nullptr));
    int scoped = 0;
    for (const AuthPolicyName& policy : kAuthPolicyNames) scoped += IsUserScopedName(policy.name);
    EXPECT_EQ(scoped, 3);
    EXPECT_TRUE(IsUserScopedName(W("disablecredentials")));
    EXPECT_FALSE(IsUserScopedName(W("RuntimePolicyUser")));
}

TEST(PolicyNames, OnlyTheNineAreReduced) {
    const wstr prefix(AppsPolicyPrefix);
    wstr lower = prefix;
    for (WCHAR& c : lower) c = c >= W('A') && c <= W('Z') ? static_cast<WCHAR>(c + 32) : c;
    const struct {
        const char* why;
        wstr name, reduced;
    } rows[] = {
        {"the long spelling", prefix + W("\\RuntimePolicy"), W("RuntimePolicy")},
        {"the caller's spelling of the leaf is kept", lower + W("\\logonpolicy"), W("logonpolicy")},
        {"another item of that key", prefix + W("\\Other"), prefix + W("\\Other")},
        {"deeper than the policies lie", prefix + W("\\X\\LogonPolicy"), prefix + W("\\X\\LogonPolicy")},
        {"the key alone", prefix, prefix},
        {"the key and a backslash", prefix + W("\\"), prefix + W("\\")},
        {"an ancestor of the key", W("Applications"), W("Applications")},
        {"another key", W("Applications\\{X}\\LogonPolicy"), W("Applications\\{X}\\LogonPolicy")},
        {"the short name", W("LogonPolicy"), W("LogonPolicy")},
    };
    for (const auto& row : rows) EXPECT_EQ(wstr(ReduceName(row.name.c_str())), row.reduced) << row.why;
    EXPECT_EQ(ReduceName(nullptr), nullptr);
}

}  // namespace
