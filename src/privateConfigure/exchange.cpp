#include "privateConfigure/exchange.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "common/log.h"

namespace lenswire::exchange {

namespace {

constexpr int kSlotAttempts = 5;

void print(const Row& row, const char* text) {
    switch (row.form) {
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
    if (row.no_answer_names_command) {
        report(row, "get cond and property failed pCmd->usCmd =%x",
               row.named_command != 0 ? row.named_command : row.command);
    } else {
        report(row, "get cond and property failed");
    }
}

bool is_good(const Row& row, const PrivateCmd& header) {
    if (!row.checks_flag || header.ulFlag == LENSWIRE_FLAG_COMMAND) return true;
    report(row,
           row.form == Form::kError ? "ulBufferNum =%d ulFlag=%d\tERROR" : "ulBufferNum =%d ulFlag=%d  ERROR",
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
    report(row, "%s", row.refused);
    return -1;
}

Request::Request(const Row& row) {
    wire::store(bytes, wire::command_header(row.command, row.number, row.size));
}

Request::Request(const Row& row, int channel) : Request(row) {
    if (row.sends_channel) payload()[0] = static_cast<uint8_t>(channel);
    payload()[1] = row.second_byte;
}

Request::Request(const Row& row, const void* record) : Request(row) {
    std::memcpy(payload(), record, static_cast<size_t>(row.number) * row.size);
}

std::span<const uint8_t> Request::whole() const {
    return {bytes, static_cast<size_t>(wire::message_length(wire::load_header(bytes)))};
}

uint32_t Answer::record_count(uint32_t record_size) const {
    return std::min(header().ulBufferNum, static_cast<uint32_t>(wire::payload(bytes).size() / record_size));
}

Pending::Pending(const Row& row, uint32_t ip) : row_(row), ip_(ip), slot_(row.command, kSlotAttempts, ip) {
    if (!slot_) report(row_, "cond init failed");
}

bool Pending::send(Request& request, int channel) {
    pending::store_request(slot_.get(), request.whole());
    if (Prv_Send_Cmd(ip_, request.bytes, request.bytes, row_.attempts) >= 0) return true;
    if (row_.not_sent_names_channel) {
        report(row_, "%s channel : %d\n", row_.not_sent, channel);
    } else {
        report(row_, "%s", row_.not_sent);
    }
    return false;
}

bool Pending::receive(Answer& answer) {
    if (Prv_GetCond_Property(slot_.get(), row_.wait_s) < 0) {
        report_no_answer(row_);
        return false;
    }
    pending::copy_answer(slot_.get(), answer.bytes);
    return is_good(row_, answer.header());
}

bool fetch(const Row& row, Request& request, int channel, uint32_t ip, Answer& answer) {
    Pending pending(row, ip);
    return pending && pending.send(request, channel) && pending.receive(answer);
}

int get(const Row& row, int channel, uint32_t ip, void* out) {
    if (ip == 0 || channel < 0 || out == nullptr) return refuse(row);
    Request request(row, channel);
    Answer answer;
    if (!fetch(row, request, channel, ip, answer)) return -1;
    std::memcpy(out, answer.payload(), row.size);
    return 0;
}

int send(const Row& row, uint32_t ip, Request& request) {
    if (Prv_Send_Cmd(ip, request.bytes, request.bytes, row.attempts) >= 0) return 0;
    report(row, "%s", row.not_sent);
    return -1;
}

int set(const Row& row, uint32_t ip, const void* record) {
    if (ip == 0 || record == nullptr) return refuse(row);
    Request request(row, record);
    return send(row, ip, request);
}

}  // namespace lenswire::exchange
