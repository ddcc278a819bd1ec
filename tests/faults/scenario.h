// What a recorder does with one camera, from login to upgrade, and what it holds before and after.
#pragma once

#include <memory>
#include <string>

#include "camera/serve/farm.h"
#include "lenswire/records.h"
#include "support/fake_host.h"

namespace lenswire::test {

struct Holdings {
    int descriptors, threads;
};

class Scenario {
  public:
    Scenario();
    ~Scenario();

    // Every step, also after one that failed. True when all went well.
    bool run();
    Holdings holdings() const;
    // Whether no more is held than then, and no memory of the host's.
    bool comes_back_to(const Holdings& before) const;

  private:
    void has_channel(bool armed);
    bool log_in(StreamConn* unit);
    bool gets() const;
    bool sets() const;
    bool streams(StreamConn* unit);
    bool motion();
    bool upgrade();

    std::string folder_;
    std::string firmware_;
    camera::CameraFarm farm_;
    camera::Camera* camera_ = nullptr;
    uint32_t ip_ = 0;
    ReceiveBuffer buffer_;
    FakeStream stream_;
};

}  // namespace lenswire::test
