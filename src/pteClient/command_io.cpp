// One message out, one message in. What is short is not completed later: a second send could come between
// another thread's halves, and who reads a whole message at once takes the rest for lost.
#include "pteClient/command_io.h"

#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>

#include "common/log.h"
#include "common/printable.h"
#include "common/wire.h"
#include "lenswire/command.h"
#include "pteClient/waits.h"

using namespace lenswire;

namespace {

bool try_again_later() {
    return errno == EINTR || errno == EAGAIN;
}

bool is_capacity(const int* pLen) {
    return pLen != nullptr && *pLen >= 0 && *pLen <= MAX_CMD_SIZE;
}

// recv with errno 0 where there was no error, so that an old errno does not stand in for a new one.
ssize_t receive(int fd, void* buffer, size_t length) {
    errno = 0;
    return recv(fd, buffer, length, 0);
}

int refuse(int* pLen) {
    *pLen = 0;
    return -1;
}

}  // namespace

namespace lenswire::command_io {

SendOutcome try_send(int fd, const void* data, int* pLen) {
    if (fd < 0 || data == nullptr) return {SendResult::kBadSocketOrData, 0};
    if (!is_capacity(pLen)) return {SendResult::kBadLength, 0};
    const auto length = static_cast<int64_t>(wire::message_length(wire::load_header(data)));
    if (*pLen < length) return {SendResult::kLongerThanGiven, length};
    const ssize_t sent = send(fd, data, static_cast<size_t>(length), MSG_NOSIGNAL);
    if (sent == length) {
        *pLen = static_cast<int>(length);
        return {SendResult::kSent, length};
    }
    if (sent < 0 && !try_again_later()) return {SendResult::kFailed, length};
    *pLen = 0;
    return {sent < 0 ? SendResult::kWouldBlock : SendResult::kShort, length};
}

void report(const SendOutcome& outcome, int fd, const void* data, int length) {
    switch (outcome.result) {
        case SendResult::kBadSocketOrData:
            PRIVATE_LOG_AS("PC_SendCmd", "******input param error ****** sockFd =%d,pData=%p\n", fd, data);
            break;
        case SendResult::kBadLength:
            PRIVATE_LOG_AS("PC_SendCmd", "******input param error ****** \n");
            break;
        case SendResult::kLongerThanGiven:
            PRIVATE_LOG_AS("PC_SendCmd", "************sendLen=%d ,*pLen=%d\n",
                           static_cast<int>(outcome.message_length), length);
            break;
        case SendResult::kWouldBlock:
            usleep(waits::kSendPauseUs);
            break;
        case SendResult::kSent:
        case SendResult::kShort:
        case SendResult::kFailed:
            break;
    }
}

}  // namespace lenswire::command_io

int PC_SendCmd(int sockFd, const void* pData, int* pLen) {
    const int length = pLen != nullptr ? *pLen : 0;
    const command_io::SendOutcome outcome = command_io::try_send(sockFd, pData, pLen);
    command_io::report(outcome, sockFd, pData, length);
    return outcome.result == command_io::SendResult::kSent ? 0 : -1;
}

int PC_RecvCmd(int sockFd, void* pCmd, int* pLen) {
    if (sockFd < 0) {
        FILE_LOG("************ sockFd < 0\n");
        return -1;
    }
    if (pCmd == nullptr || !is_capacity(pLen) || *pLen < ARG_HEAD_LEN) return -1;
    auto* bytes = static_cast<uint8_t*>(pCmd);

    const ssize_t head = receive(sockFd, bytes, ARG_HEAD_LEN);
    if (head <= 0) {
        if (try_again_later()) usleep(waits::kReceivePauseUs);
        return refuse(pLen);
    }
    if (head != ARG_HEAD_LEN) {
        FILE_LOG("************ len is ARG_HEAD_LEN != len : %d, sock : %d, buf : %s\n\n",
                 static_cast<int>(head), sockFd, Printable({bytes, static_cast<size_t>(head)}).text());
        return refuse(pLen);
    }
    const PrivateCmd header = wire::load_header(bytes);
    if (header.ulFlag != LENSWIRE_FLAG_COMMAND) return refuse(pLen);
    const uint32_t expected = wire::payload_length(header);
    if (static_cast<uint64_t>(*pLen) < wire::message_length(header)) {
        PRIVATE_LOG("PC_RecvCmd  *pLen=%d,pCmd->ulBufferNum*pCmd->ulBufferSize=%lu,pCmd->usCmd=%x\n", *pLen,
                    static_cast<unsigned long>(expected), header.usCmd);
        return refuse(pLen);
    }
    if (expected == 0) {
        *pLen = ARG_HEAD_LEN;
        return 0;
    }

    const ssize_t body = receive(sockFd, bytes + ARG_HEAD_LEN, expected);
    const int error = errno;
    if (body <= 0 && try_again_later()) {
        std::fprintf(stderr, "33333333 socket=%d  ,  %m \n", sockFd);
        usleep(waits::kReceivePauseUs);
    }
    if (body != static_cast<ssize_t>(expected)) {
        PRIVATE_LOG(
            "PC_RecvCmd  len=%d,*pLen=%d,pCmd->ulBufferNum*pCmd->ulBufferSize=%lu sock : %d  errno : %d "
            "pBuff : %s\n",
            static_cast<int>(body), *pLen, static_cast<unsigned long>(expected), sockFd, error,
            Printable({bytes + ARG_HEAD_LEN, static_cast<size_t>(body > 0 ? body : 0)}).text());
        return refuse(pLen);
    }
    *pLen = static_cast<int>(ARG_HEAD_LEN + expected);
    return 0;
}

int PC_RecvCmd1(int sockFd, void* buf, int* pLen) {
    if (sockFd < 0) {
        FILE_LOG("************ sockFd < 0\n");
        return -1;
    }
    // A read of nothing would look like the end of the stream.
    if (buf == nullptr || !is_capacity(pLen) || *pLen == 0) return -1;
    const ssize_t received = receive(sockFd, buf, static_cast<size_t>(*pLen));
    if (received > 0) {
        *pLen = static_cast<int>(received);
        return 0;
    }
    if (received < 0 && try_again_later()) return 1;
    return refuse(pLen);
}
