// The cutter by itself, against the plainest way to cut.
#include "pteClient/message_cutter.h"

#include "fuzz/support/target.h"
#include "lenswire/records.h"

namespace lenswire::fuzz {

void run(Input input) {
    const auto all = input.rest();
    const Cut cut = cut_messages(all);
    size_t at = 0;
    bool over_long = false;
    while (all.size() - at >= ARG_HEAD_LEN) {
        PrivateCmd header;
        std::memcpy(&header, &all[at], sizeof header);
        const uint32_t payload = header.ulBufferNum * header.ulBufferSize;
        over_long = payload > MAX_CMD_SIZE - ARG_HEAD_LEN;
        if (over_long || all.size() - at - ARG_HEAD_LEN < payload) break;
        at += ARG_HEAD_LEN + payload;
    }
    require(cut.whole_bytes == at, "the cutter cuts where the headers say");
    require((cut.rest.kind == Front::kOverLong) == over_long, "and says what is too long");
}

}  // namespace lenswire::fuzz
