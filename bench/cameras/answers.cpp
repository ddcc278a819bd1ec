#include "bench/cameras/answers.h"

#include <cstring>

#include "lenswire/records.h"

namespace lenswire::bench {

namespace {

// Makes an answer of a request.
void complete(std::vector<uint8_t>& answer, PrivateCmd header) {
    switch (header.usCmd) {
        case LENSWIRE_CMD_SERIAL:
            header.ulBufferSize = LENSWIRE_SERIAL_SIZE;
            header.ulBufferNum = 1;
            answer.resize(sizeof header + LENSWIRE_SERIAL_SIZE, 'k');
            break;
        case LENSWIRE_CMD_LOGIN:
            header.ulLoginId = 1;
            break;
        case LENSWIRE_CMD_HEARTBEAT:  // whoever asks for a sign of life also gets a motion alarm
            header.usCmd = LENSWIRE_CMD_MOTION_PUSH;
            header.ulBufferSize = header.ulBufferNum = 4;
            answer.resize(sizeof header + 16, 1);
            break;
        case LENSWIRE_CMD_DEVICE_INFO: {
            IpcDeviceInfo info{};
            info.ndevType = kDeviceType;
            std::strcpy(info.szFirmwareName, kFirmwareName);
            std::memcpy(answer.data() + sizeof header, &info, sizeof info);
            break;
        }
        default:
            break;
    }
    std::memcpy(answer.data(), &header, sizeof header);
}

}  // namespace

std::vector<uint8_t> answer_first_of(std::vector<uint8_t>& bytes) {
    PrivateCmd header;
    if (bytes.size() < sizeof header) return {};
    std::memcpy(&header, bytes.data(), sizeof header);
    const size_t length = sizeof header + size_t{header.ulBufferSize} * header.ulBufferNum;
    if (bytes.size() < length) return {};
    const auto end = bytes.begin() + static_cast<ptrdiff_t>(length);
    std::vector<uint8_t> answer(bytes.begin(), end);
    bytes.erase(bytes.begin(), end);
    complete(answer, header);
    return answer;
}

}  // namespace lenswire::bench
