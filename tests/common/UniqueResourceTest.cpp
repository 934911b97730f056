#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

#include "common/LastError.h"
#include "common/UniqueResource.h"

namespace {

// A resource that records its closing and disturbs the thread's last error while closing, the
// way CloseHandle, FreeLibrary or a logging library may.
std::vector<int> g_closed;

struct CountedTraits {
    using Handle = int;
    static Handle Invalid() { return -1; }
    static bool IsValid(Handle handle) { return handle >= 0; }
    static void Close(Handle handle) {
        g_closed.push_back(handle);
        WriteLastError(999);
    }
};

using Counted = UniqueResource<CountedTraits>;

class UniqueResourceTest : public ::testing::Test {
protected:
    void SetUp() override { g_closed.clear(); }
};

}  // namespace

TEST_F(UniqueResourceTest, ClosesOnceAtTheEnd) {
    {
        const Counted owner(7);
        EXPECT_TRUE(owner.valid());
        EXPECT_EQ(owner.get(), 7);
    }
    EXPECT_EQ(g_closed, std::vector<int>{7});
    { const Counted empty; }
    EXPECT_EQ(g_closed, std::vector<int>{7}) << "nothing held, nothing closed";
}

TEST_F(UniqueResourceTest, ClosingKeepsTheThreadsLastError) {
    Counted owner(3);
    WriteLastError(112);
    owner.reset(4);
    EXPECT_EQ(ReadLastError(), 112u);
    owner.reset();
    EXPECT_EQ(ReadLastError(), 112u);
    EXPECT_EQ(g_closed, (std::vector<int>{3, 4}));
}

TEST_F(UniqueResourceTest, MovesAndPutCloseWhatWasHeld) {
    Counted first(1);
    Counted second(2);
    second = std::move(first);
    EXPECT_EQ(g_closed, std::vector<int>{2});
    EXPECT_FALSE(first.valid());  // NOLINT(bugprone-use-after-move): moved-from owners are empty
    EXPECT_EQ(second.get(), 1);
    *second.put() = 5;
    EXPECT_EQ(g_closed, (std::vector<int>{2, 1}));
    EXPECT_EQ(second.get(), 5);
}

TEST_F(UniqueResourceTest, ReleaseAndLeakOnPurposeGiveUpWithoutClosing) {
    Counted released(8);
    EXPECT_EQ(released.release(), 8);
    Counted kept(9);
    EXPECT_EQ(LeakOnPurpose(kept), 9);
    EXPECT_FALSE(released.valid());
    EXPECT_FALSE(kept.valid());
    EXPECT_TRUE(g_closed.empty());
}

static_assert(!std::is_copy_constructible<Counted>::value, "one owner per resource");
static_assert(std::is_nothrow_move_constructible<Counted>::value, "owners move");
