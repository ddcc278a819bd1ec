// One firmware upload: takes the bytes as fast as it is told to, counts and keeps them, and knows when the
// file is whole.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "camera/serve/faults.h"
#include "camera/serve/loop.h"
#include "camera/serve/stats.h"
#include "camera/wire/bytes.h"

namespace lenswire::camera {

// The bytes of a file in one number, whatever pieces they come in; see UploadStats::checksum.
class Checksum {
  public:
    void add(std::span<const uint8_t> bytes);
    uint64_t value() const;

  private:
    void add_word(uint64_t word);

    uint64_t state_ = 0xCBF29CE484222325;
    uint64_t pending_ = 0;  // bytes that do not make a word yet
    unsigned pending_bytes_ = 0;
};

uint64_t checksum_of(std::span<const uint8_t> bytes);

// Where a file goes while it comes in; it has its name only once it is whole.
class KeptFile {
  public:
    explicit KeptFile(const std::string& path);  // keeps nothing when the path is empty
    ~KeptFile();
    KeptFile(const KeptFile&) = delete;
    KeptFile& operator=(const KeptFile&) = delete;

    bool write(std::span<const uint8_t> bytes);  // false when there is no room, or no such folder
    bool finish();

  private:
    std::string path_;
    int fd_ = -1;
};

struct UploadSetup {
    int fd = -1;
    uint64_t announced = 0;
    UploadFault fault;
    std::string keep_as;
    std::shared_ptr<UploadStats> stats;
};

class Upload {
  public:
    // `done` is called once, with the state to answer; `babble` to send something that is no answer; `close`
    // when the connection is to go. None may destroy the upload at once.
    struct Calls {
        std::function<void(uint16_t state)> done;
        std::function<void()> babble;
        std::function<void()> close;
    };
    Upload(Loop& loop, UploadSetup setup, Calls calls);

    const UploadFault& fault() const { return setup_.fault; }
    // The first bytes of the file, which came with the header; perhaps none.
    void take(std::span<const uint8_t> bytes);
    // Reads what is there and may be read by now.
    void read();
    // The descriptor is gone.
    void halt();

  private:
    void on_time();
    bool read_once(size_t most);
    size_t allowance(int64_t now);
    void store(std::span<const uint8_t> bytes);
    void finish(uint16_t state);

    Loop& loop_;
    UploadSetup setup_;
    Calls calls_;
    Timer read_timer_;
    Timer babble_timer_;
    KeptFile file_;
    Checksum checksum_;
    int64_t start_us_;
    uint32_t babble_left_;
    bool finished_ = false;
    bool halted_ = false;
};

}  // namespace lenswire::camera
