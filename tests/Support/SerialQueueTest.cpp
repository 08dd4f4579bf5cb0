#include "Support/SerialQueue.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace mnemora {
namespace {

TEST(SerialQueue, RunsOneJobAtATimeForManyCallers) {
    SerialQueue queue("app.mnemora.Mnemora.test");
    int counter = 0; // unguarded on purpose: only the queue may touch it
    std::vector<std::jthread> callers;
    for (int caller = 0; caller < 8; ++caller)
        callers.emplace_back([&] {
            for (int i = 0; i < 500; ++i)
                queue.sync([&] { ++counter; });
        });
    callers.clear();
    EXPECT_EQ(counter, 4000);
}

TEST(SerialQueue, GoesOnAfterAJobThatThrows) {
    SerialQueue queue("q");
    queue.sync([] { throw std::runtime_error("no memory"); });
    bool ran = false;
    queue.sync([&] { ran = true; });
    EXPECT_TRUE(ran);
}

#ifndef NDEBUG
TEST(SerialQueueDeathTest, CatchesAJobThatWaitsForItsOwnQueue) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            SerialQueue queue("q");
            queue.sync([&] { queue.sync([] {}); });
        },
        "waits for its own queue");
}
#endif

} // namespace
} // namespace mnemora
