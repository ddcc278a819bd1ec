// The receive ring, used through the services as the library uses it.
#include "recorder/host/ring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "lenswire/host_services.h"

namespace lenswire::recorder {
namespace {

using Bytes = std::vector<uint8_t>;

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

    // Looks at `length` bytes, then takes them out; one more is asked for than there is room for.
    void take(uint32_t length, uint32_t capacity) {
        const uint32_t count = std::min<uint32_t>(length, static_cast<uint32_t>(model_.size()));
        Bytes seen(capacity + 1, 0xEE), peeked(length + 1, 0xEE),
            expected(model_.begin(), model_.begin() + count);
        model_.erase(model_.begin(), model_.begin() + count);
        ASSERT_EQ(ring_pop_temp(ring(), peeked.data(), static_cast<int>(length)), count);
        ASSERT_EQ(ring_pop_n(ring(), seen.data(), static_cast<int>(length), static_cast<int>(capacity)),
                  count);
        ASSERT_EQ(ring_used_size(ring()), model_.size());
        ASSERT_EQ(Bytes(peeked.begin(), peeked.begin() + count), expected);
        expected.resize(std::min(count, capacity));
        ASSERT_EQ(Bytes(seen.begin(), seen.begin() + static_cast<long>(expected.size())), expected);
        ASSERT_EQ(peeked[count], 0xEE) << "nothing beyond what was asked for or held";
        ASSERT_EQ(seen[expected.size()], 0xEE);
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

TEST_F(RingTest, GivesBackWhatItTookInOrderWhateverTheSteps) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        empty_ring();
        for (int step = 0; step < 500 && !HasFatalFailure(); ++step) {
            receive(random() % kPacket, random() % 2 == 0);
            take(random() % kPacket, random() % kPacket);
            if (random() % 50 == 0) open();
        }
    }
}

// A stream that is stuck with a full ring is lost, so room must be found for the rest of any packet.
TEST_F(RingTest, AlwaysHasRoomForTheLargestPacketAfterEveryHistory) {
    for (uint32_t rest = 0; rest <= kPacket; rest += 37) {
        for (uint32_t read = 1; read <= kPacket + kSlack - rest; read += 3) {
            empty_ring();
            receive(read + rest);
            take(read, 0);
            ASSERT_GE(room() + rest, kPacket) << read << " read, " << rest << " held";
        }
    }
    Ring ring;
    EXPECT_GE(ring.free_size(), 32u + 4194303 + 33) << "the largest packet of the protocol";
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
        testing::Each(-1));
    take(20, 20);
    EXPECT_EQ(ring_free_size_ex(nullptr), 0);
    EXPECT_EQ(ring_get_start_buf(nullptr), nullptr);
    EXPECT_EQ(ring_used_size(nullptr), 0u);
}

}  // namespace
}  // namespace lenswire::recorder
