// Another thread sets the abort flag while a read makes one attempt after the other.

#include "ReaderTest.hpp"

#include <atomic>
#include <thread>

namespace avitest {
namespace {

class Abort : public ReaderTest {};

TEST_F(Abort, AnotherThreadEndsAReadThatGoesOnTrying)
{
    AviBuilder builder;
    builder.Add(VideoStream()).Frame(0, Fill(400), true);
    log.SetMask(0);
    ASSERT_EQ(Open(builder.Build(), true, 0xFFFFFFFFu), LX_OK);
    std::atomic<bool> bReading = false;
    Faults().FaultRead(1, {ReadFault::Kind::ShortThenError, 0}, true); // every read returns 0 bytes
    Faults().onRead = [&](UInt64) {
        bReading = true;
        std::this_thread::yield();
    };
    std::thread other([&] {
        while (!bReading) {
            std::this_thread::yield();
        }
        static_cast<void>(lxAviReadCore_SetAbortFlag(1));
    });
    EXPECT_EQ(lxAviReadCore_RemoveChunk(100), LX_ERR_AVIREAD_ABORTED);
    other.join();
    EXPECT_EQ(lxAviReadCore_GetAbortFlag(), 1);
}

} // namespace
} // namespace avitest
