// A file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

namespace lenswire::recorder {

class Descriptor {
  public:
    // Negative: none.
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number() const { return number_; }

  private:
    int number_;
};

}  // namespace lenswire::recorder
