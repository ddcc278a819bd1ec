// What a stream hands the library, used through the services as the library uses it: the receive ring, and
// the frame queue with the worker that empties it.
#include "recorder/host/frame_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "lenswire/host_services.h"
#include "recorder/host/recorder_stream.h"

namespace lenswire::recorder {
namespace {

using testing::Each;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kMiB = 1024 * 1024;

struct Listener : FrameQueue::Listener {
    int calls = 0;
    void frames_waiting() override { ++calls; }
};

class FrameQueueTest : public testing::Test {
  protected:
    FrameQueueTest() { use(FrameQueue::kDefaultLimit); }
    void use(size_t limit) { object_.queue = &queue_.emplace(&listener_, limit); }

    bool deliver(uint32_t size) {
        void* frame = streamGetFrameQueueBuffer(&object_, static_cast<int>(size));
        if (frame == nullptr) return false;
        StreamFrameHead head{};
        head.ulDataSize = size;
        std::memcpy(frame, &head, sizeof head);
        std::memset(static_cast<uint8_t*>(frame) + sizeof head, 1, size);
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
    EXPECT_EQ(listener_.calls, 4 + 8 + 8 + 1 + 4) << "one per frame";
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
                    Each(-1));
    }
}

TEST(FrameWorker, ServesAlsoWhatComesWhileItServes) {
    FrameWorker worker;
    struct Stream : FrameWorker::Stream {
        explicit Stream(FrameWorker& its) : worker(its) {}
        void record_waiting_frames() override {
            if (++served < 3) worker.schedule(*this);
        }
        FrameWorker& worker;
        int served = 0;
    } stream(worker);
    worker.schedule(stream);
    worker.stop();
    EXPECT_EQ(stream.served, 3);
}

constexpr uint32_t kPacket = 1000;  // the largest in these tests
constexpr uint32_t kSlack = 64;

// A ring and a model of the bytes that must be in it.
class RingTest : public testing::Test {
  protected:
    RingTest() { empty_ring(); }
    void empty_ring() {
        buffer_.emplace(kPacket + kSlack, kSlack);
        model_.clear();
    }

    void* ring() { return &buffer_->ring; }
    uint32_t room() { return static_cast<uint32_t>(ring_free_size_ex(ring())); }

    // One receive of up to `most` bytes, with the two questions in either order.
    void receive(uint32_t most, bool pointer_first = false) {
        void* start = pointer_first ? ring_get_start_buf(ring()) : nullptr;
        const uint32_t count = std::min(most, room());
        if (!pointer_first) start = ring_get_start_buf(ring());
        for (uint32_t i = 0; i < count; ++i) {
            static_cast<uint8_t*>(start)[i] = next_;
            model_.push_back(next_++);
        }
        ASSERT_EQ(ring_set_data_end(ring(), static_cast<int>(count)), 0);
        ASSERT_EQ(ring_used_size(ring()), model_.size());
    }

    // Looks at `length` bytes, then takes them out, into less room perhaps: nothing else may be written.
    void take(uint32_t length, uint32_t capacity) {
        const uint32_t count = std::min(length, static_cast<uint32_t>(model_.size()));
        Bytes peeked(kPacket, 0xEE), seen = peeked, whole = peeked, part = peeked;
        std::copy_n(model_.begin(), count, whole.begin());
        std::copy_n(model_.begin(), std::min(count, capacity), part.begin());
        model_.erase(model_.begin(), model_.begin() + count);
        const auto wanted = static_cast<int>(length), most = static_cast<int>(capacity);
        ASSERT_EQ(ring_pop_temp(ring(), peeked.data(), wanted), count);
        ASSERT_EQ(ring_pop_n(ring(), seen.data(), wanted, most), count);
        ASSERT_EQ(ring_used_size(ring()), model_.size());
        ASSERT_EQ(peeked, whole);
        ASSERT_EQ(seen, part);
    }

    // What the library does when it opens the stream: it knows the object's address and one offset.
    void open() {
        const uint32_t zero = 0;
        std::memcpy(reinterpret_cast<uint8_t*>(&*buffer_) + 28, &zero, sizeof zero);
        model_.clear();
        ASSERT_EQ(room(), kPacket + kSlack);
    }

    std::optional<ReceiveBuffer> buffer_;
    Bytes model_;
    uint8_t next_ = 0;
};

// A stream that is stuck with a full ring is lost, so room must be found for the rest of any packet.
TEST_F(RingTest, GivesBackWhatItTookInOrderAndHasRoomForAPacketWhateverTheSteps) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        empty_ring();
        for (int step = 0; step < 500 && !HasFatalFailure(); ++step) {
            receive(random() % kPacket, random() % 2 == 0);
            take(random() % kPacket, random() % kPacket);
            ASSERT_GE(room() + model_.size(), kPacket);
            if (random() % 50 == 0) open();
        }
    }
    Ring ring;
    EXPECT_GE(ring.free_size(), 32u + 4194303 + 33) << "the largest packet of the protocol";
}

TEST(Ring, KnowsWhetherTheSenderStoppedWithinAPacket) {
    Ring ring;
    StreamHeadInfo head{};
    head.ulDataInfo = 10 << LENSWIRE_PACKET_LENGTH_SHIFT;
    std::memcpy(ring.write_position(), &head, sizeof head);
    for (const auto& [bytes, within] : {std::pair{20, true}, {21, true}, {1, false}, {1, false}}) {
        ring.commit(static_cast<uint32_t>(bytes));
        EXPECT_EQ(ring.ends_in_packet(), within);
    }
    ring.pop(&head, 42, sizeof head);
    EXPECT_TRUE(ring.ends_in_packet());
}

TEST_F(RingTest, RefusesWhatCannotBe) {
    receive(10);
    uint8_t byte = 0;
    EXPECT_THAT(
        (std::vector{ring_set_data_end(ring(), kPacket + kSlack - 10 + 1), ring_set_data_end(ring(), -1),
                     ring_pop_temp(ring(), &byte, -1), ring_pop_temp(ring(), nullptr, 1),
                     ring_pop_n(ring(), &byte, -1, 1), ring_pop_n(ring(), &byte, 1, -1),
                     ring_pop_n(ring(), nullptr, 1, 1), ring_set_data_end(nullptr, 0),
                     ring_pop_temp(nullptr, &byte, 1), ring_pop_n(nullptr, &byte, 1, 1)}),
        Each(-1));
    take(20, 20);
    EXPECT_EQ(ring_free_size_ex(nullptr), 0);
    EXPECT_EQ(ring_get_start_buf(nullptr), nullptr);
    EXPECT_EQ(ring_used_size(nullptr), 0u);
}

}  // namespace
}  // namespace lenswire::recorder
