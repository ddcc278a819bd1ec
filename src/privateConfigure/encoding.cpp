#include "lenswire/encoding.h"

#include <algorithm>
#include <cstring>

#include "common/log.h"
#include "lenswire/host_services.h"
#include "privateConfigure/channel_camera.h"
#include "privateConfigure/exchange.h"
#include "privateConfigure/text/resolution_list.h"

using namespace lenswire;
using exchange::Row;

namespace {

constexpr Row kScope{.operation = "Private_Protocol_GetEncodingScope",
                     .wire = {.command = LENSWIRE_CMD_ENCODING_SCOPE,
                              .records = {LENSWIRE_ENCODING_SCOPE_SIZE},
                              .sends_channel = true,
                              .wait_s = 4},
                     .wording = {.not_sent_names_channel = true}};
constexpr Row kStreamType{.operation = "Private_Protocol_GetStreamType",
                          .wire = {.command = LENSWIRE_CMD_ENCODING_GET,
                                   .records = {LENSWIRE_ENCODING_SIZE},
                                   .second_byte = LENSWIRE_ALL_STREAMS,
                                   .checks_flag = true}};
constexpr Row kRecords{.operation = "Private_Protocol_GetEncodingProperty",
                       .wire = {.command = LENSWIRE_CMD_ENCODING_GET,
                                .records = {LENSWIRE_ENCODING_SIZE},
                                .second_byte = LENSWIRE_ALL_STREAMS,
                                .checks_flag = true,
                                .wait_s = 4},
                       .wording = {.refused = "IP  error"}};
constexpr Row kRecords1{.operation = "Private_Protocol_GetEncodingProperty1",
                        .wire = {.command = LENSWIRE_CMD_ENCODING_GET,
                                 .records = {LENSWIRE_ENCODING_SIZE},
                                 .second_byte = LENSWIRE_ALL_STREAMS,
                                 .checks_flag = true}};
// The two of Private_Protocol_GetEncodingPropert. A missing answer of either is told as one of the records.
constexpr Row kBothScope{
    .operation = "Private_Protocol_GetEncodingPropert",
    .wire = {.command = LENSWIRE_CMD_ENCODING_SCOPE,
             .records = {LENSWIRE_ENCODING_SCOPE_SIZE},
             .sends_channel = true},
    .wording = {.not_sent_names_channel = true, .named_command = LENSWIRE_CMD_ENCODING_GET}};
constexpr Row kBothRecords{.operation = "Private_Protocol_GetEncodingPropert",
                           .wire = {.command = LENSWIRE_CMD_ENCODING_GET,
                                    .records = {LENSWIRE_ENCODING_SIZE},
                                    .second_byte = LENSWIRE_ALL_STREAMS,
                                    .checks_flag = true}};
constexpr Row kRecordsSet{
    .operation = "Private_Protocol_SetEncodingProperty",
    .wire = {.command = LENSWIRE_CMD_ENCODING_SET, .records = {LENSWIRE_ENCODING_SIZE, 3}},
    .wording = {.refused = "IP  error"}};
constexpr Row kFishGet{.operation = "Private_Fish_Protocol_GetEncodingProperty",
                       .wire = {.command = LENSWIRE_CMD_FISH_ENCODING_GET,
                                .records = {LENSWIRE_FISH_ENCODING_SIZE},
                                .sends_channel = true,
                                .checks_flag = true,
                                .wait_s = 4},
                       .wording = {.refused = "IP  error"}};
constexpr Row kFishSet{
    .operation = "Private_Fish_Protocol_SetEncodingProperty",
    .wire = {.command = LENSWIRE_CMD_FISH_ENCODING_SET, .records = {LENSWIRE_FISH_ENCODING_SIZE, 3}},
    .wording = {.refused = "IP  error"}};

constexpr uint32_t kUnusableChannel = 255;
constexpr uint32_t kRecordsMax = 20;  // that Private_Protocol_GetEncodingProperty accepts
constexpr int kStreams = 3;
constexpr int kFishCopyCountByte = 1;

EncodingRecord record_at(const exchange::Message& answer, uint32_t index) {
    return wire::load<EncodingRecord>(answer.payload() + index * sizeof(EncodingRecord));
}

// Fills in the scope from the answer; false after a line that says what failed.
bool read_scope(const Row& row, exchange::Message& answer, void* scope) {
    // The text ends with the payload, whatever an earlier and longer answer left behind it.
    const auto payload = wire::payload(answer.bytes);
    std::fill(answer.bytes + ARG_HEAD_LEN + payload.size(), std::end(answer.bytes), uint8_t{0});
    if (Prv_EncScopPasVal(scope, answer.payload()) != 0) {
        exchange::report(row, "pass value failed");
        return false;
    }
    if (answer.payload()[resolutions::kTextOffset] == 0) return true;
    if (Parse_EncodingResolution(scope, answer.payload()) == 0) return true;
    exchange::report(row, "Parse_EncodingResolution error\n");
    return false;
}

// Files the answer's records; succeeds with two or more.
int read_records(const Row& row, const exchange::Message& answer, void* array96) {
    int filed = 0;
    const uint32_t count = answer.record_count(sizeof(EncodingRecord));
    for (uint32_t i = 0; i < count; ++i) {
        const EncodingRecord record = record_at(answer, i);
        if (Process_EncodingType(&record, array96) == 0) {
            ++filed;
        } else {
            exchange::report(row, "Process_EncodingType ret !=0");
        }
    }
    if (filed >= 2) return 0;
    exchange::report(row, "Process_EncodingType failed k=%d", filed);
    return -1;
}

// The flag of stream type 0 is bit 2, of type 2 bit 0. Of a flag other than 0 and 1 all bits go along.
uint32_t stream_mask(const exchange::Message& answer) {
    uint8_t mask = 0;
    const uint32_t count = answer.record_count(sizeof(EncodingRecord));
    for (uint32_t i = 0; i < count; ++i) {
        const EncodingRecord record = record_at(answer, i);
        if (record.ucStreamType < kStreams)
            mask |= static_cast<uint8_t>(record.ucFlag << (2 - record.ucStreamType));
    }
    return mask;
}

}  // namespace

int Private_Protocol_GetEncodingScope(int channel, uint32_t ip, void* scope) {
    if (channel < 0 || ip == 0 || scope == nullptr) return exchange::refuse(kScope);
    exchange::Message message(kScope, channel);
    if (!exchange::fetch(kScope, ip, message)) return -1;
    return read_scope(kScope, message, scope) ? 0 : -1;
}

uint32_t Private_Protocol_GetStreamType(int channel) {
    const ChannelCamera camera = camera_of_channel(channel);
    if (!camera.known) {
        PRI_LOG("DbMainMsgChannelInfo   get channel failed\n\n");
        return kUnusableChannel;
    }
    if (camera.ip == 0 || channel < 0 || channel >= configGetDisplayNum()) {
        exchange::refuse(kStreamType);
        return kUnusableChannel;
    }
    exchange::Message message(kStreamType);
    return exchange::fetch(kStreamType, camera.ip, message) ? stream_mask(message) : 0;
}

int Prv_EncScopPasVal(void* scope, const void* payload) {
    if (scope == nullptr || payload == nullptr) {
        PRI_LOG("Parameter input error\n");
        return -1;
    }
    const uint8_t capability = static_cast<const uint8_t*>(payload)[1];
    for (EncodingScopeEntry& entry : static_cast<EncodingScope*>(scope)->entries) {
        entry.ucCapability = capability;
    }
    return 0;
}

int Private_Protocol_GetEncodingProperty(uint32_t ip, void* array96) {
    if (ip == 0 || array96 == nullptr) return exchange::refuse(kRecords);
    exchange::Message message(kRecords);
    if (!exchange::fetch(kRecords, ip, message)) return -1;
    if (message.header().ulBufferNum > kRecordsMax) {
        std::printf("%s:$$$$$$$$$$$$$$pCmd->ulBufferNum is illegal\n", kRecords.operation);
        return -1;
    }
    return read_records(kRecords, message, array96);
}

int Private_Protocol_GetEncodingProperty1(uint32_t ip, void* array96) {
    exchange::Message message(kRecords1);
    if (!exchange::fetch(kRecords1, ip, message)) return -1;
    return read_records(kRecords1, message, array96);
}

int Private_Protocol_GetEncodingPropert(int channel, uint32_t ip, void* scope, void* array96) {
    if (ip == 0 || channel < 0 || scope == nullptr || array96 == nullptr) return exchange::refuse(kBothScope);
    exchange::Pending scope_pending(kBothScope, ip);
    if (!scope_pending) return -1;
    exchange::Pending records_pending(kBothRecords, ip);
    if (!records_pending) return -1;

    exchange::Message message(kBothScope, channel);
    if (!scope_pending.send(message)) return -1;
    message = exchange::Message(kBothRecords);
    if (!records_pending.send(message)) return -1;

    if (!scope_pending.receive(message) || !read_scope(kBothScope, message, scope)) return -1;
    if (!records_pending.receive(message)) return -1;
    return read_records(kBothRecords, message, array96);
}

int Private_Protocol_SetEncodingProperty(uint32_t ip, const void* array96) {
    return exchange::set(kRecordsSet, ip, array96);
}

int Process_EncodingType(const void* record32, void* array96) {
    if (record32 == nullptr || array96 == nullptr) return exchange::refuse(__func__);
    const auto record = wire::load<EncodingRecord>(record32);
    if (record.ucStreamType >= kStreams) {
        PRI_LOG("encoding type error ucStreamType=%d\n", record.ucStreamType);
        return -1;
    }
    wire::store(static_cast<uint8_t*>(array96) + record.ucStreamType * sizeof record, record);
    return 0;
}

int Private_Fish_Protocol_GetEncodingProperty(uint32_t channel, uint32_t ip, void* array768) {
    if (ip == 0 || array768 == nullptr) return exchange::refuse(kFishGet);
    exchange::Message message(kFishGet, static_cast<int>(channel));
    if (!exchange::fetch(kFishGet, ip, message)) return -1;
    return Process_Fish_EncodingType(message.payload(), array768);
}

int Process_Fish_EncodingType(const void* record256, void* array768) {
    if (record256 == nullptr || array768 == nullptr) return 0;
    const auto* record = static_cast<const uint8_t*>(record256);
    auto* out = static_cast<uint8_t*>(array768);
    const int copies = std::min(1 + record[kFishCopyCountByte], kStreams);
    for (int i = 0; i < copies; ++i) {
        std::memmove(out + i * LENSWIRE_FISH_ENCODING_SIZE, record, LENSWIRE_FISH_ENCODING_SIZE);
    }
    return 0;
}

int Private_Fish_Protocol_SetEncodingProperty(uint32_t ip, const void* array768) {
    return exchange::set(kFishSet, ip, array768);
}
