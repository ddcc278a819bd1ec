// From a stream's socket through the recorder's ring into frames.
#include "fuzz/support/camera_end.h"
#include "fuzz/support/host.h"
#include "lenswire/stream.h"

namespace lenswire::fuzz {

namespace {

constexpr uint32_t kCapacity = 16 * 1024;
constexpr uint32_t kSlack = 4 * 1024;

}  // namespace

// The first byte says how large the pieces are, the second whether the host has frame buffers.
void run(Input input) {
    static const SocketPair sockets;
    static Stream stream;
    static recorder::ReceiveBuffer buffer(kCapacity, kSlack);
    set_stream(&stream);
    stream = {};
    sockets.drain();
    HostReceiveBuffer empty;
    std::memcpy(&empty, &buffer, sizeof empty);
    empty.ulFill = 0;  // as the library does when a stream opens
    std::memcpy(static_cast<void*>(&buffer), &empty, sizeof empty);

    const size_t piece = 1 + size_t{input.number<uint8_t>()} * 64;
    stream.refuses = input.number<uint8_t>() % 4 == 1;
    int32_t number = 0, sound_number = 0, index = 0, frames = 0, rate = 0, width = 0, height = 0;
    const size_t all = input.rest().size();
    int result = 1;
    while (!input.empty() && result >= 0) {
        sockets.say(input.take(std::min<size_t>(piece, kCapacity)));
        result = RecvStreamToPacketBuf(1, 0, &index, sockets.library, 25, &rate, &buffer, stream.object(),
                                       &number, &sound_number, &frames, &width, &height);
    }
    require(!stream.handed_out && !stream.locked, "every buffer is inserted, and the queue unlocked");
    require(stream.frames * ARG_HEAD_LEN + stream.frame_bytes <= all + 4 * stream.frames,
            "frames hold no more than was sent");
    require(frames >= 0 && static_cast<uint64_t>(frames) <= stream.frames, "pictures are frames");
}

}  // namespace lenswire::fuzz
