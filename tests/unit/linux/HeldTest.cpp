// Is what is held given out while it is good, and no more of it kept than is useful?
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "harrow/lifetime/HeldMap.h"
#include "platform/linux/identity/UnixAccount.h"
#include "platform/linux/keys/SourceLook.h"
#include "platform/linux/seam/HandleTable.h"

namespace morwen {
namespace {

// What a look at the second path says about a look at the first, in a later tick of the clock.
bool IsSame(const std::string& i_before, const std::string& i_after) {
    SourceLook look(i_before);
    while (look.IsOfThisTick()) {
    }
    return look.GoOnWith(SourceLook(i_after));
}

TEST(SourceLook, TellsFilesThatHaveChanged) {
    EXPECT_TRUE(IsSame("/etc/passwd", "/etc/passwd"));
    EXPECT_FALSE(IsSame("/etc/passwd", "/etc/group"));
    EXPECT_FALSE(IsSame("/etc/passwd", "/nowhere"));
    EXPECT_FALSE(IsSame("/nowhere", "/nowhere")) << "what cannot be looked at is not known to be the same";
    EXPECT_TRUE(IsSame("", "")) << "what is no file is trusted for a while";
    EXPECT_FALSE(SourceLook().GoOnWith(SourceLook("")));

    const auto fresh = std::filesystem::temp_directory_path() / ("look" + std::to_string(getpid()));
    bool bTrusted = true;
    for (int i = 0; bTrusted && i < 10; ++i) {  // the machine may take its time between writing and looking
        std::ofstream(fresh) << "content";
        bTrusted = IsSame(fresh, fresh);
    }
    EXPECT_FALSE(bTrusted) << "it may be written once more and look the same";
    std::filesystem::remove(fresh);
}

TEST(HandleTable, KnowsItsOwnHandlesOnly) {
    HandleTable<int> table(1), other(2);
    const SecHandle own = table.Add(std::make_shared<int>(7)), foreign = other.Add(std::make_shared<int>(8));
    ASSERT_EQ(own.dwLower, foreign.dwLower);  // else the kind would not be needed
    const SecHandle beside = {own.dwLower + 1, own.dwUpper};
    for (const SecHandle* const pWrong : {&foreign, &beside, static_cast<const SecHandle*>(nullptr)}) {
        EXPECT_TRUE(table.Find(pWrong) == nullptr && table.Remove(pWrong) == nullptr);
    }
    EXPECT_TRUE(*table.Find(&own) == 7 && *table.Remove(&own) == 7 && table.Find(&own) == nullptr);
    EXPECT_EQ(*other.Find(&foreign), 8);
}

TEST(UnixAccount, IsWhoMayDoTheSame) {
    const UnixAccount account{1, 2, {2, 3, 4}};
    const struct {
        uid_t m_nUser;
        gid_t m_nGroup;
        std::vector<gid_t> m_groups;
        bool m_bSame;
    } kCases[] = {{1, 2, {2, 3, 4}, true},  {1, 2, {3, 4}, true},  {0, 2, {2, 3, 4}, false},
                  {1, 3, {2, 3, 4}, false}, {1, 2, {2, 3}, false}, {1, 2, {2, 3, 4, 5}, false},
                  {1, 2, {}, false}};
    for (const auto& test : kCases) {
        EXPECT_EQ(account.Is(test.m_nUser, test.m_nGroup, test.m_groups), test.m_bSame) << &test - kCases;
        EXPECT_EQ((UnixAccount{test.m_nUser, test.m_nGroup, test.m_groups} == account), test.m_bSame);
    }
}

TEST(HeldMap, IsEmptiedWhenItIsFull) {
    Harrowlib201::HeldMap<int, std::string, 2> held;
    EXPECT_EQ(held.Hold(1, "one"), "one");
    EXPECT_EQ(held.Hold(2, "two"), "two");
    EXPECT_EQ(*held.Find(1), "one");
    EXPECT_EQ(held.Hold(3, "three"), "three");
    EXPECT_TRUE(held.Find(1) == nullptr && held.Find(2) == nullptr);
    EXPECT_EQ(held.Hold(3, "more"), "more");
    held.Forget(3);
    EXPECT_EQ(held.Find(3), nullptr);
}

}  // namespace
}  // namespace morwen
