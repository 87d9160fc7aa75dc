#include "store/PolicyMap.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace {

CPolicyItem Item(const wstr& name, DWORD number) {
    CPolicyItem item{name, {}};
    item.value.SetNumber(OV_TYPE_DWORD, number);
    return item;
}

struct NameLess {
    bool operator()(const wstr& a, const wstr& b) const { return CompareNames(a.c_str(), b.c_str()) < 0; }
};

TEST(PolicyMap, TheFirstInsertedStaysWithItsSpelling) {
    CPolicyMap map;
    EXPECT_EQ(map.Find(W("a")), nullptr) << "an empty map has no table";
    EXPECT_TRUE(map.Insert(Item(W("LOGONPOLICY"), 1)));
    EXPECT_FALSE(map.Insert(Item(W("LogonPolicy"), 2)));
    ASSERT_NE(map.Find(W("logonpolicy")), nullptr);
    EXPECT_EQ(map.Find(W("logonpolicy"))->name, W("LOGONPOLICY"));
    EXPECT_EQ(map.Find(W("logonpolicy"))->value.Dword(), 1u);
    EXPECT_EQ(map.Size(), 1u);
}

TEST(PolicyMap, BehavesLikeAnOrderedMapInWhichTheFirstWins) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> pick(0, 1999), letter(0, 5);
    const WCHAR letters[] = {W('a'), W('B'), W('\\'), W('_'), W('\u00E9'), W('\u00C9')};
    for (int round = 0; round < 20; ++round) {
        CPolicyMap map;
        std::map<wstr, DWORD, NameLess> model;
        for (DWORD i = 0; i < 2000; ++i) {
            wstr name;
            for (int n = pick(random) % 8; n > 0; --n) name += letters[letter(random)];
            EXPECT_EQ(map.Insert(Item(name, i)), model.emplace(name, i).second);
            // A walk in between must not spoil what comes behind it.
            if (i == 1000) {
                ASSERT_EQ(map.At(0).name, model.begin()->first);
            }
        }
        ASSERT_EQ(map.Size(), model.size());
        std::size_t rank = 0;
        for (const auto& [name, number] : model) {
            ASSERT_EQ(map.At(rank).name, name);
            ASSERT_EQ(map.At(rank++).value.Dword(), number);
            ASSERT_EQ(map.Find(name)->value.Dword(), number);
        }
    }
}

TEST(PolicyMap, CopiesAndClearsWhole) {
    CPolicyMap map;
    for (DWORD i = 0; i < 100; ++i) map.Insert(Item(wstr(i, W('n')), i));
    const CPolicyMap copy = map;
    map.Clear();
    EXPECT_TRUE(map.IsEmpty());
    EXPECT_EQ(map.Find(W("n")), nullptr);
    EXPECT_TRUE(map.Insert(Item(W("n"), 5)));
    ASSERT_NE(copy.Find(W("NNN")), nullptr);
    EXPECT_EQ(copy.Find(W("NNN"))->value.Dword(), 3u);
    EXPECT_EQ(copy.At(0).name, W("")) << "the empty name comes first";
}

}  // namespace
