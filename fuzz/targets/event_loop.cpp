// The cutter of messages and the event loop: any bytes, in pieces of any size, on a socket pair.
#include "fuzz/support/camera_end.h"
#include "pteClient/message_cutter.h"

namespace lenswire::fuzz {

constexpr size_t kPieces = 6;

// The first byte says how large the pieces are, but not that there are many: a pass looks at every client.
void run(Input input) {
    static CameraEnd camera;
    camera.clear();
    const size_t wanted = 1 + size_t{input.number<uint8_t>()} * 16;
    const auto all = input.rest().first(std::min<size_t>(input.rest().size(), 3 * MAX_CMD_SIZE));
    const Cut cut = cut_messages(all);
    require(cut.whole_bytes <= all.size(), "whole messages are no longer than what came");
    const size_t piece = std::min<size_t>(std::max(wanted, all.size() / kPieces + 1), MAX_CMD_SIZE);
    for (Input rest(all); !rest.empty();) camera.say(rest.take(piece));

    const size_t kept = camera.client().ulRecvRemainLen;
    require(kept < MAX_CMD_SIZE, "less than a message is kept");
    if (cut.rest.kind == Front::kOverLong) return;
    require(kept == all.size() - cut.whole_bytes, "what is kept is what the cutter leaves");
    require(std::equal(all.end() - static_cast<long>(kept), all.end(), camera.client().aucRecvRemain),
            "byte for byte");
}

}  // namespace lenswire::fuzz
