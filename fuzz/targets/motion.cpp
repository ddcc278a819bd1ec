// A push of motion, as long as its header says and no longer, or as much of that as came and zeros.
#include "lenswire/motion.h"

#include "fuzz/support/host.h"
#include "fuzz/support/target.h"
#include "lenswire/command.h"

namespace lenswire::fuzz {

void run(Input input) {
    const auto bytes = input.rest();
    const auto header = input.record<PrivateCmd>();
    const uint32_t payload = header.ulBufferNum * header.ulBufferSize;
    Bytes message(ARG_HEAD_LEN + std::min<uint32_t>(payload, MAX_CMD_SIZE - ARG_HEAD_LEN));
    std::copy_n(bytes.begin(), std::min(bytes.size(), message.size()), message.begin());
    Prv_IPCTriggingMtionDetetion(message.data(), kCameraAddress);
    Private_Protocol_RecvProcess(message.data(), kCameraAddress);
}

}  // namespace lenswire::fuzz
