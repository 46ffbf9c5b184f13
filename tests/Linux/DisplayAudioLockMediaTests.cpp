#include "Platforms/Linux/DisplayAudioLock.h"
#include "tests/support/FakeSaverPlatform.h"
#include "tests/support/FixtureKit.h"

#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

// Two processes of one display, each with its own arbiter: the lock is per
// open file, so two locks in this process contend just as two processes do.
TEST(DisplayAudioLock, OnlyTheHolderSoundsUntilItsLastRelease)
{
    testing::TempDir folder;
    testing::RecordingAudioArbiter firstSound, secondSound;
    auto first = std::make_unique<DisplayAudioLock>(firstSound, folder / "audio.lock");
    DisplayAudioLock second(secondSound, folder / "audio.lock");
    WorldPackage world("/worlds/calm.hushmeadow", WorldManifest{}, {});
    int a = 0, b = 0, c = 0;

    first->acquire(&a, world, {});
    first->acquire(&b, world, {});
    second.acquire(&c, world, {});
    EXPECT_EQ(firstSound.clients.size(), 2u);
    EXPECT_TRUE(secondSound.calls.empty());
    EXPECT_FALSE(second.holdsLock());

    second.release(&c, true); // never forwarded: nothing to release
    first->release(&a, false);
    second.acquire(&c, world, {});
    EXPECT_TRUE(secondSound.calls.empty()) << "the lock goes with the last claim, not the first";

    // A process that goes away releases its claims at once and its lock with them.
    first.reset();
    EXPECT_TRUE(firstSound.calls.back().kind == "release" && firstSound.calls.back().immediately);
    second.acquire(&c, world, {});
    EXPECT_EQ(secondSound.clients.size(), 1u);
}

} // namespace
} // namespace hushmeadows
