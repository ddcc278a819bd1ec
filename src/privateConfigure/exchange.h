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

// The records behind a request's header, as the header counts them. More than a message can hold does not
// compile.
struct Records {
    consteval Records(uint32_t its_size, uint32_t its_number = 1) : size(its_size), number(its_number) {
        if (uint64_t{size} * number > MAX_CMD_SIZE - ARG_HEAD_LEN) do_not_fit();
    }
    uint32_t size;    // bytes of one, ulBufferSize
    uint32_t number;  // ulBufferNum

  private:
    static void do_not_fit();
};

// What goes out and comes back, and how long that may take.
struct Wire {
    uint16_t command;
    Records records;
    bool sends_channel = false;  // get: payload byte 0 of the request is the channel
    uint8_t second_byte = 0;     // get: payload byte 1 of the request
    bool built_apart = false;    // get: an answer without payload leaves zeros, not the request
    bool checks_flag = false;    // get: an answer with ulFlag other than 0 is a failure
    uint8_t wait_s = 10;         // get: for the answer
    int attempts = 20;           // the budget that goes to Prv_Send_Cmd, which makes one of them
};

// What the operation says about a step that failed.
struct Wording {
    Form form = Form::kLine;
    const char* refused = "parameter pass error!";  // arguments
    const char* not_sent = " Prv_Send_Cmd failed";
    bool not_sent_names_channel = false;
    bool no_answer_names_command = true;
    uint16_t named_command = 0;  // the command named there, 0 the row's own
};

struct Row {
    const char* operation;  // exported name, as log lines show it
    Wire wire;
    Wording wording = {};
};

// Prints the row's line about bad arguments; -1.
int refuse(const Row& row);
// The same for an operation without a row.
int refuse(const char* operation);

// Prints a line of the operation in the row's form; the text has no line end.
[[gnu::format(printf, 2, 3)]] void report(const Row& row, const char* format, ...);

// A request, out of reach of late answers, and then the answer to it. An answer without payload leaves the
// request in the slot's buffer, a short one the request's rest or zeros behind it; so every byte up to the
// end may be read, whatever the header claims.
struct Message {
    explicit Message(const Row& row, int its_channel = 0);  // and the bytes that the row asks for
    Message(const Row& row, const void* record);            // and the row's records

    PrivateCmd header() const { return wire::load_header(bytes); }
    const uint8_t* payload() const { return bytes + ARG_HEAD_LEN; }
    std::span<const uint8_t> whole() const;
    // Of an answer: the records that lie wholly in the payload, at most as many as the header counts.
    uint32_t record_count(uint32_t record_size) const;

    int channel = 0;
    uint8_t bytes[MAX_CMD_SIZE] = {};
};

// A request that is out, or failed to be: each step reports its own failure. The slot is given back at the
// end of the scope.
class Pending {
  public:
    Pending(const Row& row, uint32_t ip);

    explicit operator bool() const { return static_cast<bool>(slot_); }
    bool send(Message& request);
    bool receive(Message& answer);

  private:
    const Row& row_;
    uint32_t ip_;
    pending::Slot slot_;
};

// Takes a slot, sends the message and waits for the answer, which replaces it. False after a line that says
// what failed.
bool fetch(const Row& row, uint32_t ip, Message& message);

// Fetches and copies one record of the answer to out, which is written only on success. 0 or -1.
int fetch_record(const Row& row, int channel, uint32_t ip, void* out);

// The same after a check of the arguments, for operations that have the usual one.
int get(const Row& row, int channel, uint32_t ip, void* out);

// Sends a request and awaits nothing. 0 or -1.
int send(const Row& row, uint32_t ip, Message& request);

// Checks the arguments and sends the record. 0 or -1.
int set(const Row& row, uint32_t ip, const void* record);

}  // namespace lenswire::exchange
