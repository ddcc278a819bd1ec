#include "privateConfigure/exchange.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "common/log.h"

namespace lenswire::exchange {

namespace {

constexpr int kSlotAttempts = 5;  // a second apart, while the table is full

void print(const Row& row, const char* text) {
    switch (row.wording.form) {
        case Form::kLine:
            PRI_LOG_AS(row.operation, "%s\n", text);
            break;
        case Form::kBlankLine:
            PRI_LOG_AS(row.operation, "%s\n\n", text);
            break;
        case Form::kBare:
            std::printf("%s", text);
            break;
        case Form::kError:
            PRI_ERROR_AS(row.operation, ":%s\n", text);
            break;
    }
}

void report_no_answer(const Row& row) {
    if (row.wording.no_answer_names_command) {
        report(row, "get cond and property failed pCmd->usCmd =%x",
               row.wording.named_command != 0 ? row.wording.named_command : row.wire.command);
    } else {
        report(row, "get cond and property failed");
    }
}

bool is_good(const Row& row, const PrivateCmd& header) {
    if (!row.wire.checks_flag || header.ulFlag == LENSWIRE_FLAG_COMMAND) return true;
    report(row,
           row.wording.form == Form::kError ? "ulBufferNum =%d ulFlag=%d\tERROR"
                                            : "ulBufferNum =%d ulFlag=%d  ERROR",
           static_cast<int>(header.ulBufferNum), header.ulFlag);
    return false;
}

}  // namespace

void report(const Row& row, const char* format, ...) {
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    print(row, text);
}

int refuse(const Row& row) {
    report(row, "%s", row.wording.refused);
    return -1;
}

int refuse(const char* operation) {
    PRI_LOG_AS(operation, "parameter pass error!\n");
    return -1;
}

Message::Message(const Row& row, int its_channel) : channel(its_channel) {
    const Records& records = row.wire.records;
    wire::store(bytes, wire::command_header(row.wire.command, records.number, records.size));
    if (row.wire.sends_channel) bytes[ARG_HEAD_LEN] = static_cast<uint8_t>(channel);
    bytes[ARG_HEAD_LEN + 1] = row.wire.second_byte;
}

Message::Message(const Row& row, const void* record) : Message(row) {
    std::memcpy(bytes + ARG_HEAD_LEN, record, row.wire.records.number * row.wire.records.size);
}

std::span<const uint8_t> Message::whole() const {
    return {bytes, static_cast<size_t>(wire::message_length(header()))};
}

uint32_t Message::record_count(uint32_t record_size) const {
    return std::min(header().ulBufferNum, static_cast<uint32_t>(wire::payload(bytes).size() / record_size));
}

Pending::Pending(const Row& row, uint32_t ip)
    : row_(row), ip_(ip), slot_(row.wire.command, kSlotAttempts, ip) {
    if (!slot_) report(row_, "cond init failed");
}

bool Pending::send(Message& request) {
    if (!row_.wire.built_apart) pending::store_request(slot_.get(), request.whole());
    if (Prv_Send_Cmd(ip_, request.bytes, request.bytes, row_.wire.attempts) >= 0) return true;
    if (row_.wording.not_sent_names_channel) {
        report(row_, "%s channel : %d\n", row_.wording.not_sent, request.channel);
    } else {
        report(row_, "%s", row_.wording.not_sent);
    }
    return false;
}

bool Pending::receive(Message& answer) {
    if (Prv_GetCond_Property(slot_.get(), row_.wire.wait_s) < 0) {
        report_no_answer(row_);
        return false;
    }
    pending::copy_answer(slot_.get(), answer.bytes);
    return is_good(row_, answer.header());
}

bool fetch(const Row& row, uint32_t ip, Message& message) {
    Pending pending(row, ip);
    return pending && pending.send(message) && pending.receive(message);
}

int fetch_record(const Row& row, int channel, uint32_t ip, void* out) {
    Message message(row, channel);
    if (!fetch(row, ip, message)) return -1;
    std::memcpy(out, message.payload(), row.wire.records.size);
    return 0;
}

int get(const Row& row, int channel, uint32_t ip, void* out) {
    if (ip == 0 || channel < 0 || out == nullptr) return refuse(row);
    return fetch_record(row, channel, ip, out);
}

int send(const Row& row, uint32_t ip, Message& request) {
    if (Prv_Send_Cmd(ip, request.bytes, request.bytes, row.wire.attempts) >= 0) return 0;
    report(row, "%s", row.wording.not_sent);
    return -1;
}

int set(const Row& row, uint32_t ip, const void* record) {
    if (ip == 0 || record == nullptr) return refuse(row);
    Message request(row, record);
    return send(row, ip, request);
}

}  // namespace lenswire::exchange
