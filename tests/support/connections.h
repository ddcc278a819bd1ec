// Small things that tests of connections share.
#pragma once

#include <string>

#include "lenswire/records.h"
#include "support/scripted_camera.h"

namespace lenswire::test {

LoginInfo credentials(const std::string& user = "admin", const std::string& password = "12345");

// Two connected stream sockets: ours() non-blocking as the library has them, theirs() the camera's side.
class Pair {
  public:
    Pair();
    ~Pair();
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    int ours() const { return ours_; }
    Wire& theirs() { return theirs_; }
    // Leaves the descriptor to somebody else.
    int gives_ours();
    void closes_ours();

  private:
    int ours_ = -1;
    Wire theirs_;
};

// Bytes that wait in a socket to be read.
int waiting_bytes(int descriptor);

}  // namespace lenswire::test
