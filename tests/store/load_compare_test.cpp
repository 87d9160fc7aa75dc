// Loads, one after the other: what each leaves in the store.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "store/PolicyMap.h"

namespace {

CPolicyItem Item(const wstr& name, DWORD number) {
    CPolicyItem item{name, {}};
    item.value.SetNumber(OV_TYPE_DWORD, number);
    return item;
}

TEST(LoadCompare, DifferencesAreThoseOfAMergeInKeyOrder) {
    using Kind = PolicyDifference::Kind;
    struct NameLess {
        bool operator()(const wstr& a, const wstr& b) const { return CompareNames(a.c_str(), b.c_str()) < 0; }
    };
    std::mt19937 random(3);
    const WCHAR letters[] = {W('a'), W('B'), W('b'), W('\\'), W('_'), W('\u00E9')};
    for (int round = 0; round < 200; ++round) {
        CPolicyMap maps[2];
        std::map<wstr, DWORD, NameLess> models[2];
        for (int side = 0; side < 2; ++side) {
            for (int i = 0; i < 60; ++i) {
                wstr name;
                for (unsigned n = random() % 4; n > 0; --n) name += letters[random() % std::size(letters)];
                const DWORD number = random() % 2;
                maps[side].Insert(Item(name, number));
                models[side].emplace(name, number);
            }
        }
        std::vector<std::pair<Kind, wstr>> expected, found;
        std::map<wstr, int, NameLess> all;
        for (const auto& model : models) {
            for (const auto& entry : model) all.emplace(entry.first, 0);
        }
        for (const auto& [name, unused] : all) {
            const auto before = models[0].find(name), after = models[1].find(name);
            if (before == models[0].end()) {
                expected.push_back({Kind::kCreated, after->first});
            } else if (after == models[1].end()) {
                expected.push_back({Kind::kDeleted, before->first});
            } else if (before->second != after->second) {
                expected.push_back({Kind::kChanged, before->first});
            }
        }
        for (const PolicyDifference& difference : CPolicyMap::Differences(maps[0], maps[1])) {
            found.push_back({difference.kind, difference.item->name});
        }
        ASSERT_EQ(found, expected) << "round " << round;
    }
}

TEST(LoadCompare, WhatCountsAsAChange) {
    const auto differences = [](const CPolicyItem& before, const CPolicyItem& after) {
        CPolicyMap a, b;
        a.Insert(before);
        b.Insert(after);
        return CPolicyMap::Differences(a, b).size();
    };
    CPolicyItem lower{W("n"), {}}, upper{W("N"), {}}, wide{W("n"), {}};
    lower.value.SetString(W("text"));
    upper.value.SetString(W("TEXT"));
    wide.value.SetNumber(OV_TYPE_QWORD, 5);
    EXPECT_EQ(differences(lower, upper), 0u) << "neither the case of a name nor that of a text";
    EXPECT_EQ(differences(Item(W("n"), 5), wide), 1u) << "the same number in another width";
    EXPECT_EQ(differences({W("n"), {}}, wide), 0u) << "what had no type never counts as changed";
    EXPECT_EQ(differences(wide, {W("n"), {}}), 1u);
}

}  // namespace
