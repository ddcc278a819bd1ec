// The frame queue, filled through the services as the library fills it, and the worker that empties it.
#include "recorder/host/frame_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "lenswire/host_services.h"
#include "recorder/host/recorder_stream.h"

namespace lenswire::recorder {
namespace {

constexpr uint32_t kMiB = 1024 * 1024;

struct Listener : FrameQueue::Listener {
    std::atomic<int> calls{0};
    void frames_waiting() override {
        ++calls;
        calls.notify_one();
    }
};

class FrameQueueTest : public testing::Test {
  protected:
    FrameQueueTest() { use(FrameQueue::kDefaultLimit); }
    void use(size_t limit) { object_.queue = &queue_.emplace(&listener_, limit); }

    bool deliver(uint32_t size, uint16_t sequence = 0, uint8_t fill = 0) {
        void* frame = streamGetFrameQueueBuffer(&object_, static_cast<int>(size));
        if (frame == nullptr) return false;
        StreamFrameHead head{};
        head.usSequence = sequence;
        head.ulDataSize = size;
        std::memcpy(frame, &head, sizeof head);
        std::memset(static_cast<uint8_t*>(frame) + sizeof head, fill, size);
        const int locked = streamFrameQueueLock(&object_);
        const int inserted = streamInsertFrameToFrameQueue(&object_, frame);
        return locked == 0 && inserted == 0 && steramFrameQueueUnlock(&object_) == 0;
    }
    int deliver_until_refused(uint32_t size) {
        int accepted = 0;
        while (accepted < 5000 && deliver(size)) ++accepted;
        return accepted;
    }
    std::vector<FrameBuffer*> drain() {
        std::vector<FrameBuffer*> frames;
        queue_->drain(frames);
        return frames;
    }

    Listener listener_;
    StreamObject object_;
    std::optional<FrameQueue> queue_;
};

TEST_F(FrameQueueTest, HandsFramesOnInOrderWithTheirBytes) {
    const uint32_t sizes[] = {1, 4060, 4061, 100'000, kMiB};
    for (size_t i = 0; i < std::size(sizes); ++i) {
        if (i == 0 || i == 3) queue_->begin_connection();
        ASSERT_TRUE(deliver(sizes[i], static_cast<uint16_t>(i), static_cast<uint8_t>(i + 1)));
    }
    EXPECT_EQ(listener_.calls, 5) << "one per frame";
    const auto frames = drain();
    ASSERT_EQ(frames.size(), std::size(sizes));
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i]->head().usSequence, i);
        EXPECT_EQ(frames[i]->first_of_connection(), i == 0 || i == 3);
        ASSERT_EQ(frames[i]->data().size(), sizes[i]);
        EXPECT_THAT(frames[i]->data(), testing::Each(i + 1));
    }
    EXPECT_TRUE(drain().empty());
}

TEST_F(FrameQueueTest, UsesItsBuffersAgainSoThatSteadyStateAllocatesNothing) {
    size_t allocated = 0;
    for (int i = 0; i < 100; ++i) {
        for (const uint32_t size : {40'000u, 8'000u, 9'000u, 320u, 8'500u}) ASSERT_TRUE(deliver(size));
        queue_->give_back(drain());
        if (i == 0) allocated = queue_->allocated_bytes();
    }
    EXPECT_EQ(queue_->allocated_bytes(), allocated);
    for (int i = 0; i < 1000; ++i) queue_->take(100);
    EXPECT_EQ(queue_->allocated_bytes(), allocated) << "a buffer that never came back is used again";
}

TEST_F(FrameQueueTest, HoldsAsMuchAsItsLimitAllowsAndCountsTheRest) {
    EXPECT_EQ(deliver_until_refused(kMiB), 4) << "by default, a head and 1 MiB take 2 MiB of 8";
    EXPECT_EQ(queue_->lost(), 1u);
    use(64 * 1024);
    EXPECT_EQ(deliver_until_refused(7'000), 8) << "buffers of 8 KiB";
    EXPECT_FALSE(deliver(1));
    EXPECT_EQ(queue_->lost(), 2u);
    queue_->give_back(drain());
    EXPECT_EQ(deliver_until_refused(7'000), 8) << "when the consumer has caught up";
    queue_->give_back(drain());
    EXPECT_TRUE(deliver(30'000)) << "small unused buffers make way for a large one";
    EXPECT_EQ(deliver_until_refused(7'000), 4) << "and no more of them than need be";
    EXPECT_EQ(queue_->allocated_bytes(), 64u * 1024);
    EXPECT_EQ(queue_->lost(), 4u);
}

TEST_F(FrameQueueTest, RefusesWhatIsNoFrameOfItsOwn) {
    EXPECT_EQ(streamGetFrameQueueBuffer(&object_, -1), nullptr);
    EXPECT_EQ(streamGetFrameQueueBuffer(&object_, FrameQueue::kLargestFrame + 1), nullptr);
    EXPECT_EQ(queue_->lost(), 2u);
    StreamFrameHead stranger{};
    EXPECT_EQ(streamInsertFrameToFrameQueue(&object_, nullptr), -1) << "none is out";
    void* frame = queue_->take(10);
    EXPECT_EQ(streamInsertFrameToFrameQueue(&object_, &stranger), -1);
    queue_->lock();
    queue_->unlock();
    EXPECT_EQ(listener_.calls, 0) << "nothing was inserted";
    stranger.ulDataSize = 0xFFFFFFFF;
    std::memcpy(frame, &stranger, sizeof stranger);
    EXPECT_EQ(streamInsertFrameToFrameQueue(&object_, frame), 0);
    EXPECT_EQ(streamInsertFrameToFrameQueue(&object_, frame), -1) << "a second time";
    EXPECT_EQ(drain().front()->data().size(), 4096 - sizeof stranger) << "never more than the buffer holds";
    for (StreamObject none; void* stream : {static_cast<void*>(nullptr), static_cast<void*>(&none)}) {
        EXPECT_EQ(streamGetFrameQueueBuffer(stream, 10), nullptr);
        EXPECT_THAT((std::vector{streamFrameQueueLock(stream), streamInsertFrameToFrameQueue(stream, frame),
                                 steramFrameQueueUnlock(stream)}),
                    testing::Each(-1));
    }
}

// Run under the thread sanitizer this shows that the two sides share nothing without the lock.
TEST_F(FrameQueueTest, LosesNothingBetweenAReceiverAndAConsumer) {
    use(64 * kMiB);
    constexpr int kFrames = 5000;
    std::thread receiver([this] {
        for (int i = 0; i < kFrames; ++i) deliver(i % 9000 + 1, static_cast<uint16_t>(i));
    });
    for (int seen = 0, next = 0; next < kFrames;) {
        listener_.calls.wait(seen);
        seen = listener_.calls;
        const auto frames = drain();
        for (const FrameBuffer* frame : frames) EXPECT_EQ(frame->head().usSequence, next++ & 0xFFFF);
        queue_->give_back(frames);
    }
    receiver.join();
    EXPECT_EQ(queue_->lost(), 0u);
}

TEST(FrameWorker, ServesAlsoWhatComesWhileItServes) {
    struct Stream : FrameWorker::Stream {
        FrameWorker* worker = nullptr;
        int served = 0;
        void record_waiting_frames() override {
            if (++served < 3) worker->schedule(*this);
        }
    } streams[2];
    FrameWorker worker;
    for (Stream& stream : streams) {
        stream.worker = &worker;
        worker.schedule(stream);
    }
    worker.stop();
    EXPECT_EQ(streams[0].served, 3);
    EXPECT_EQ(streams[1].served, 3);
}

}  // namespace
}  // namespace lenswire::recorder
