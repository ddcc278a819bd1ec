// Pins by themselves: what holds a client's descriptor in place while it is used without a lock.
#include <gtest/gtest.h>

#include <atomic>
#include <span>
#include <thread>
#include <vector>

#include "common/lock.h"
#include "lenswire/command.h"
#include "lenswire/connection.h"
#include "pteClient/client_table.h"
#include "support/capture.h"
#include "support/connections.h"
#include "support/fake_host.h"

namespace lenswire::test {
namespace {

using clients::Invited;
using clients::Pin;

const LoginInfo kInfo{"admin", "12345", {}};
const clients::Camera kCamera{.address = 0x0100007f, .port = 8000, .info = &kInfo};

// A client with one end of a socket pair; the other end stays here.
class Pins : public testing::Test {
  protected:
    Pins() {
        clients::open_tables();
        unit_ = PC_CreateNew();
        bind();
    }
    ~Pins() override {
        PC_Delete(unit_);
        clients::close_tables();
    }

    void bind() {
        Pair pair;
        far_end_ = std::move(pair.theirs());
        fd_ = pair.gives_ours();
        bool full = false;
        invited_ = clients::bind_unit(unit_, kCamera, full);
        EXPECT_TRUE(clients::attach(invited_.ref, fd_));
    }

    StreamConn* unit_;
    Invited invited_;
    int fd_ = -1;
    Wire far_end_;
};

// Every way to take a client its socket shuts it down, waits for the pin, and closes it last.
TEST_F(Pins, ADescriptorStaysOpenAsLongAsItIsPinned) {
    const std::vector<void (*)(StreamConn*, const Invited&)> ways = {
        [](StreamConn* unit, const Invited&) { PC_Exit(unit->pCmdClient); },
        [](StreamConn*, const Invited& invited) { clients::drop(invited.ref); },
        [](StreamConn* unit, const Invited&) { clients::bind_again(unit->pCmdClient); },
        [](StreamConn* unit, const Invited&) { PC_Delete(unit); },
    };
    for (size_t i = 0; i < ways.size(); ++i) {
        SCOPED_TRACE(i);
        bind();
        std::atomic<bool> returned{false};
        std::thread taking;
        {
            const Pin pin(invited_.ref);
            ASSERT_TRUE(pin);
            taking = std::thread([&] {
                ways[i](unit_, invited_);
                returned = true;
            });
            EXPECT_TRUE(far_end_.sees_close());
            for (int turn = 0; turn < 1000; ++turn) std::this_thread::yield();
            EXPECT_TRUE(is_open(fd_));
            EXPECT_FALSE(returned);
            StreamConn* other = PC_CreateNew();
            EXPECT_NE(other->pCmdClient, invited_.ref.client) << "a client that is leaving was taken";
            bool full = false;
            Pair pair;
            clients::attach(clients::bind_unit(other, kCamera, full).ref, pair.gives_ours());
            Bytes message = command(0x0006).bytes();
            const bool leaves =
                i + 1 == ways.size();  // so that the other client of its address is the first one
            EXPECT_EQ(Private_Protocol_CMDDelivery(kCamera.address, message.data(), message.data(), 1),
                      leaves ? 0 : -1);
            PC_Delete(other);
        }
        taking.join();
        EXPECT_FALSE(is_open(fd_));
    }
}

// The loop waits for the table while the client goes whose message is the next.
TEST_F(Pins, AMessageOfAClientThatHasJustLeftIsDropped) {
    host().has_channel(0, {.address = "127.0.0.1", .armed = true});
    PC_SetCBState(invited_.ref.client, PC_STATE_READY);
    std::promise<void> locked;
    std::thread deleting;
    host().when(Service::kSetMotionStatus, [&](int, int) {
        deleting = std::thread([&] {
            const Lock lock(clients::g_cmdclient_mutex);
            locked.set_value();
            for (int turn = 0; turn < 1000; ++turn) std::this_thread::yield();
            invited_.ref.slot->leaving = true;
            ++invited_.ref.slot->generation;
        });
        locked.get_future().wait();
    });
    far_end_.sends(command(0x0009, {0, 0, 1}).bytes() + command(0x0000, {}, 0, 99).bytes());
    PC_SingleStep();
    deleting.join();
    EXPECT_EQ(invited_.ref.client->ulLoginId, 0u);
}

TEST_F(Pins, ARefOfAnEarlierBindingPinsNothing) {
    const clients::Ref old = invited_.ref;
    bind();
    EXPECT_FALSE(Pin(old));
    EXPECT_FALSE(clients::attach(old, 0));
    clients::drop(old);
    EXPECT_TRUE(is_open(fd_));
    EXPECT_TRUE(Pin(invited_.ref));
    PC_Delete(unit_);
    EXPECT_FALSE(Pin(invited_.ref));
    EXPECT_EQ(invited_.ref.slot->pins, 0u);
}

// Whoever finds itself alive while it has the client pinned sees an open descriptor, however often the
// client is bound anew meanwhile.
TEST_F(Pins, WhatIsPinnedAliveIsNeverClosed) {
    constexpr int kBindings = 2000;
    std::vector<clients::Ref> refs(kBindings, invited_.ref);
    std::atomic<clients::Ref*> current{refs.data()};
    std::atomic<bool> done{false};
    std::thread using_it([&] {
        while (!done) {
            const clients::Ref ref = *current.load();
            const Pin pin(ref);
            if (!pin) continue;
            const int fd = __atomic_load_n(&ref.client->sockFd, __ATOMIC_ACQUIRE);
            EXPECT_TRUE(fd < 0 || is_open(fd));
        }
    });
    for (clients::Ref& ref : std::span(refs).subspan(1)) {
        bind();
        ref = invited_.ref;
        current = &ref;
    }
    done = true;
    using_it.join();
}

}  // namespace
}  // namespace lenswire::test
