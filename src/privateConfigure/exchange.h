// The two shapes of every configuration operation, walked once and described by a row each: a get sends a
// request and copies the answer out, a set sends a record and returns. What is special about an operation
// stands in its row.
#pragma once

#include <cstdint>
#include <span>

#include "common/wire.h"
#include "privateConfigure/pending_requests.h"

namespace lenswire::exchange {

// Where an operation's log lines go and how they end.
enum class Form : uint8_t {
    kLine,       // standard output, one line end
    kBlankLine,  // standard output, two line ends
    kBare,       // standard output, neither prefix nor line end
    kError       // standard error
};

struct Row {
    const char* operation;  // exported name, as log lines show it
    uint16_t command;
    uint16_t size;               // bytes of the record, ulBufferSize of the request
    uint8_t number = 1;          // ulBufferNum of the request
    bool sends_channel = false;  // get: payload byte 0 of the request is the channel
    uint8_t second_byte = 0;     // get: payload byte 1 of the request
    uint8_t wait_s = 10;         // get: for the answer
    int attempts = 20;           // of delivery
    bool checks_flag = false;    // get: an answer with ulFlag other than 0 is a failure
    Form form = Form::kLine;
    const char* refused = "parameter pass error!";  // arguments
    const char* not_sent = " Prv_Send_Cmd failed";
    bool not_sent_names_channel = false;
    bool no_answer_names_command = true;
    uint16_t named_command = 0;  // the command named there, 0 the row's own
};

// Prints the row's line about bad arguments; -1.
int refuse(const Row& row);

// Prints a line of the operation in the row's form; the text has no line end.
[[gnu::format(printf, 2, 3)]] void report(const Row& row, const char* format, ...);

// A message being built and sent, out of reach of late answers.
struct Request {
    explicit Request(const Row& row);             // header as in the row, payload zero
    Request(const Row& row, int channel);         // and the bytes that the row asks for
    Request(const Row& row, const void* record);  // and the row's number x size bytes

    uint8_t* payload() { return bytes + ARG_HEAD_LEN; }
    std::span<const uint8_t> whole() const;

    uint8_t bytes[MAX_CMD_SIZE] = {};
};

// The slot's buffer once an answer is posted. An answer without payload leaves the request in it, a short
// one the request's rest or zeros behind it; so every byte up to the end may be read, whatever the header
// claims.
struct Answer {
    PrivateCmd header() const { return wire::load_header(bytes); }
    const uint8_t* payload() const { return bytes + ARG_HEAD_LEN; }
    // The records that lie wholly in the payload, at most as many as the header counts.
    uint32_t record_count(uint32_t record_size) const;

    uint8_t bytes[MAX_CMD_SIZE];
};

// A request that is out, or failed to be: each step reports its own failure. The slot is given back at the
// end of the scope.
class Pending {
  public:
    Pending(const Row& row, uint32_t ip);

    explicit operator bool() const { return static_cast<bool>(slot_); }
    bool send(Request& request, int channel);
    bool receive(Answer& answer);

  private:
    const Row& row_;
    uint32_t ip_;
    pending::Slot slot_;
};

// Takes a slot, sends the request and waits for the answer. False after a line that says what failed.
bool fetch(const Row& row, Request& request, int channel, uint32_t ip, Answer& answer);

// Checks the arguments, fetches, copies row.size bytes of the answer's payload to out. 0 or -1; out is
// written only on success.
int get(const Row& row, int channel, uint32_t ip, void* out);

// Sends a request and awaits nothing. 0 or -1.
int send(const Row& row, uint32_t ip, Request& request);

// Checks the arguments and sends the record. 0 or -1.
int set(const Row& row, uint32_t ip, const void* record);

}  // namespace lenswire::exchange
