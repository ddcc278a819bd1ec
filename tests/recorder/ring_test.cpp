#include "recorder/host/ring.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace lenswire::recorder {
namespace {

constexpr uint32_t kPacket = 1000;  // the largest in these tests
constexpr uint32_t kSlack = 64;

// What the library does with a ring, and a model of the bytes that must be in it.
class RingUser {
  public:
    explicit RingUser(uint32_t capacity) : buffer_(capacity, kSlack) {}

    uint32_t room() { return ring().free_size(); }

    // One receive of up to `most` bytes, with the two questions in either order.
    void receive(uint32_t most, bool pointer_first) {
        uint8_t* start = pointer_first ? ring().write_position() : nullptr;
        const uint32_t count = std::min(most, ring().free_size());
        if (!pointer_first) start = ring().write_position();
        for (uint32_t i = 0; i < count; ++i) {
            start[i] = next_;
            model_.push_back(next_++);
        }
        ASSERT_TRUE(ring().commit(count));
    }

    void take(uint32_t length) {
        std::vector<uint8_t> seen(length), peeked(length);
        ASSERT_EQ(ring().peek(peeked.data(), length), length);
        ASSERT_EQ(ring().pop(seen.data(), length, length), length);
        const std::vector<uint8_t> expected(model_.begin(), model_.begin() + length);
        ASSERT_EQ(seen, expected);
        ASSERT_EQ(peeked, expected);
        model_.erase(model_.begin(), model_.begin() + length);
    }

    // What the library does when it opens the stream: it knows the object's address and one offset.
    void open() {
        const uint32_t zero = 0;
        std::memcpy(reinterpret_cast<uint8_t*>(&buffer_) + LENSWIRE_RING_FILL_OFFSET, &zero, sizeof zero);
        model_.clear();
    }

    uint32_t held() const { return static_cast<uint32_t>(model_.size()); }
    Ring& ring() { return buffer_.ring; }

  private:
    ReceiveBuffer buffer_;
    std::vector<uint8_t> model_;
    uint8_t next_ = 0;
};

TEST(Ring, GivesBackWhatItTookInOrderWhateverTheSteps) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        RingUser user(kPacket + kSlack);
        for (int step = 0; step < 500 && !HasFatalFailure(); ++step) {
            user.receive(random() % kPacket, random() % 2 == 0);
            ASSERT_EQ(user.ring().used(), user.held());
            if (user.held() > 0) user.take(random() % user.held() + 1);
            if (random() % 50 == 0) user.open();
        }
    }
}

// A stream that is stuck with a full ring is lost, so room must be found for the rest of any packet.
TEST(Ring, AlwaysHasRoomForTheLargestPacketAfterEveryHistory) {
    for (uint32_t rest = 0; rest <= kPacket; rest += 37) {
        for (uint32_t read = 1; read <= kPacket + kSlack - rest; read += 3) {
            RingUser user(kPacket + kSlack);
            user.receive(read + rest, false);
            if (user.held() != read + rest) continue;
            user.take(read);
            ASSERT_GE(user.room() + rest, kPacket) << read << " read, " << rest << " held";
        }
    }
}

TEST(Ring, BeginsEmptyWithAllItsRoomWhenTheLibraryClearsItsFillWord) {
    RingUser user(kPacket + kSlack);
    for (const uint32_t read : {0u, 1u, 500u, kPacket}) {
        user.receive(kPacket, false);
        if (read > 0) user.take(read);
        user.open();
        EXPECT_EQ(user.ring().used(), 0u);
        EXPECT_EQ(user.room(), kPacket + kSlack);
        user.receive(10, true);
        user.take(10);
    }
}

TEST(Ring, TakesOutMoreThanTheDestinationHoldsWithoutOverrunningIt) {
    RingUser user(kPacket + kSlack);
    user.receive(100, false);
    uint8_t destination[12] = {};
    std::memset(destination + 10, 0xEE, 2);
    EXPECT_EQ(user.ring().pop(destination, 60, 10), 60u);
    EXPECT_EQ(destination[9], 9);
    EXPECT_EQ(destination[10], 0xEE);
    EXPECT_EQ(user.ring().used(), 40u);
    EXPECT_EQ(user.ring().pop(destination, 60, 10), 40u) << "never more than is held";
    EXPECT_FALSE(user.ring().commit(kPacket + kSlack + 1));
}

TEST(Ring, HoldsTheLargestPacketOfTheProtocol) {
    Ring ring;
    EXPECT_GE(ring.free_size(), 32u + 4194303 + 33);
}

}  // namespace
}  // namespace lenswire::recorder
