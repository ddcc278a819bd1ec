// Every exchange with a camera, a row each: what goes out, and how each failure reads.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "support/camera_bytes.h"

namespace lenswire::test {

// A get, called for channel 0x105 where it takes one; its low byte is what cameras see. Those that find
// their camera by a channel of the host do so through kChannel.
struct Get {
    using Call = std::function<int(uint32_t ip, uint8_t* out)>;
    // request: the first bytes of the record that goes out, the others are zero.
    Get(std::string name, uint16_t code, uint32_t size, Bytes request, Call call);

    std::string name;
    uint16_t code;
    Message request;
    Call call;
    size_t copied;  // bytes of an answer that land in out as they stand; 0 when more is done with it
    bool built_apart = false;  // an answer without payload leaves zeros
    int wait_s = 10;
    int failure = -1;
    // What is printed, line ends and all.
    std::string refused;  // without an address; empty when it looks the address up
    std::string no_slot;
    std::string not_sent;
    std::string no_answer;
    std::string bad_flag;  // empty when the flag of an answer is not looked at

    // Room for whatever it writes.
    size_t room() const { return copied != 0 ? copied : 1728; }

    // Ways to differ from the usual.
    Get& refusing(const std::string& text = "parameter pass error!");
    Get& header_only(uint32_t size);
    Get& waiting(int seconds) { return wait_s = seconds, *this; }
    Get& looking_inside(int failed = -1) { return copied = 0, failure = failed, *this; }
    Get& naming_no_command();
    Get& naming_the_channel();
    Get& checking_the_flag();
    Get& with_blank_lines();
    Get& on_error_output();
    Get& without_prefix();
    Get& apart() { return built_apart = true, *this; }
};

// A set; its record is number x size bytes of payload as they stand.
struct Set {
    std::string name;
    std::function<int(uint32_t ip, const uint8_t* record)> call;
    uint16_t code;
    uint32_t size;
    uint32_t number = 1;
    std::string refused = "input paramers error";
    std::string not_sent = " Prv_Send_Cmd failed";
};

const std::vector<Get>& all_gets();
const std::vector<Set>& all_sets();

}  // namespace lenswire::test
