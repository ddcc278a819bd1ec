#include "recorder/host/frame_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

namespace lenswire::recorder {
namespace {

using testing::ElementsAre;

// The library's side: takes a buffer, fills it, inserts it under the lock.
bool deliver(FrameQueue& queue, uint16_t sequence, uint32_t size, uint8_t fill = 0) {
    void* frame = queue.take(static_cast<int>(size));
    if (frame == nullptr) return false;
    StreamFrameHead head{};
    head.usSequence = sequence;
    head.ulDataSize = size;
    std::memcpy(frame, &head, sizeof head);
    std::memset(static_cast<uint8_t*>(frame) + sizeof head, fill, size);
    queue.lock();
    const bool inserted = queue.insert(frame);
    queue.unlock();
    return inserted;
}

std::vector<FrameBuffer*> drained(FrameQueue& queue) {
    std::vector<FrameBuffer*> frames;
    queue.drain(frames);
    return frames;
}

TEST(FrameQueue, HandsFramesOnInOrderWithTheirBytes) {
    FrameQueue queue;
    const uint32_t sizes[] = {1, 4060, 4061, 100'000, FrameQueue::kLargestFrame};
    uint16_t sequence = 0;
    for (const uint32_t size : sizes) {
        ASSERT_TRUE(deliver(queue, sequence, size, static_cast<uint8_t>(sequence + 1)));
        ++sequence;
    }
    const auto frames = drained(queue);
    ASSERT_EQ(frames.size(), std::size(sizes));
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i]->head().usSequence, i);
        ASSERT_EQ(frames[i]->data().size(), sizes[i]);
        EXPECT_EQ(frames[i]->data().front(), i + 1);
        EXPECT_EQ(frames[i]->data().back(), i + 1);
    }
}

TEST(FrameQueue, UsesItsBuffersAgainSoThatSteadyStateAllocatesNothing) {
    FrameQueue queue;
    const auto round = [&queue] {
        for (const uint32_t size : {40'000u, 8'000u, 9'000u, 320u, 8'500u})
            ASSERT_TRUE(deliver(queue, 0, size));
        queue.give_back(drained(queue));
    };
    round();
    const size_t allocated = queue.allocated_bytes();
    for (int i = 0; i < 100; ++i) round();
    EXPECT_EQ(queue.allocated_bytes(), allocated);
}

TEST(FrameQueue, RefusesAndCountsWhatDoesNotFitUntilTheConsumerCatchesUp) {
    FrameQueue queue(nullptr, 64 * 1024);
    int accepted = 0;
    while (deliver(queue, 0, 7'000) && accepted < 100) ++accepted;
    EXPECT_EQ(accepted, 8) << "eight buffers of 8 KiB make 64";
    EXPECT_FALSE(deliver(queue, 0, 7'000));
    EXPECT_EQ(queue.lost(), 2u);
    queue.give_back(drained(queue));
    EXPECT_TRUE(deliver(queue, 0, 7'000));
    EXPECT_TRUE(deliver(queue, 0, 30'000)) << "small unused buffers make way for a large one";
    EXPECT_LE(queue.allocated_bytes(), 64u * 1024);
    EXPECT_EQ(queue.lost(), 2u);
}

TEST(FrameQueue, RefusesSizesThatNoFrameHas) {
    FrameQueue queue;
    EXPECT_EQ(queue.take(-1), nullptr);
    EXPECT_EQ(queue.take(FrameQueue::kLargestFrame + 1), nullptr);
    EXPECT_EQ(queue.lost(), 2u);
}

TEST(FrameQueue, InsertsOnlyTheBufferThatIsOut) {
    FrameQueue queue;
    StreamFrameHead stranger{};
    EXPECT_FALSE(queue.insert(&stranger));
    void* frame = queue.take(100);
    EXPECT_TRUE(queue.insert(frame));
    EXPECT_FALSE(queue.insert(frame)) << "a second time";
    queue.take(100);
    const size_t allocated = queue.allocated_bytes();
    for (int i = 0; i < 1000; ++i) queue.take(100);
    EXPECT_EQ(queue.allocated_bytes(), allocated) << "a buffer that never came back is used again";
}

TEST(FrameQueue, NeverShowsMoreDataThanTheBufferHolds) {
    FrameQueue queue;
    void* frame = queue.take(10);
    StreamFrameHead head{};
    head.ulDataSize = 0xFFFFFFFF;
    std::memcpy(frame, &head, sizeof head);
    queue.insert(frame);
    EXPECT_LE(drained(queue).front()->data().size(), 4096u);
}

TEST(FrameQueue, MarksTheFirstFrameOfAConnection) {
    FrameQueue queue;
    queue.begin_connection();
    deliver(queue, 0, 10);
    deliver(queue, 1, 10);
    queue.begin_connection();
    deliver(queue, 0, 10);
    std::vector<bool> marks;
    for (const FrameBuffer* frame : drained(queue)) marks.push_back(frame->first_of_connection());
    EXPECT_THAT(marks, ElementsAre(true, false, true));
}

// Run under the thread sanitizer this shows that the two sides share nothing without the lock.
TEST(FrameQueue, LosesNothingBetweenAReceiverAndAConsumer) {
    struct Signal : FrameQueue::Listener {
        std::atomic<int> waiting{0};
        void frames_waiting() override {
            ++waiting;
            waiting.notify_one();
        }
    } signal;
    FrameQueue queue(&signal, 64 * 1024 * 1024);
    constexpr int kFrames = 5000;
    std::thread receiver([&queue] {
        for (int i = 0; i < kFrames; ++i) deliver(queue, static_cast<uint16_t>(i), i % 9000 + 1);
    });
    std::vector<FrameBuffer*> frames;
    int next = 0;
    for (int seen = 0; next < kFrames;) {
        signal.waiting.wait(seen);
        seen = signal.waiting;
        queue.drain(frames);
        for (const FrameBuffer* frame : frames) EXPECT_EQ(frame->head().usSequence, next++ & 0xFFFF);
        queue.give_back(frames);
        frames.clear();
    }
    receiver.join();
    EXPECT_EQ(queue.lost(), 0u);
}

}  // namespace
}  // namespace lenswire::recorder
