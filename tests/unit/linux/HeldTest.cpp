// Is what is held given out while it is good, and no more of it kept than is useful?
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "harrow/lifetime/HeldMap.h"
#include "platform/linux/keys/SourceLook.h"

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
