// The texts in which a camera lists its resolutions and a host names its zone.
#include <cstring>

#include "fuzz/support/host.h"
#include "fuzz/support/target.h"
#include "lenswire/clock.h"
#include "lenswire/encoding.h"

namespace lenswire::fuzz {

namespace {

void parse_resolutions(Input input) {
    Bytes payload(LENSWIRE_ENCODING_SCOPE_SIZE);
    const auto text = input.take(payload.size());
    std::copy(text.begin(), text.end(), payload.begin());
    Bytes scope(sizeof(EncodingScope));
    Prv_EncScopPasVal(scope.data(), payload.data());
    Parse_EncodingResolution(scope.data(), payload.data());
    for (size_t i = 0; i < 6; ++i) {
        EncodingScopeEntry entry;
        std::memcpy(&entry, &scope[i * sizeof entry], sizeof entry);
        require(entry.ulSizes <= LENSWIRE_RESOLUTIONS, "an entry has so many slots");
        for (const ResolutionSlot& slot : entry.slots)
            require(strnlen(slot.szCodec, sizeof slot.szCodec) < sizeof slot.szCodec, "a name ends");
    }
}

void parse_zone(Input input) {
    const auto result = input.number<int16_t>();
    const std::vector<char> text = input.line();
    TZ_Process(text.data());
    set_time_zone(text.data(), result);
    HostCameraRecord camera{};
    Prv_SetIPCTimeAndDate(&camera);
}

}  // namespace

// The first byte says which.
void run(Input input) {
    if (input.number<uint8_t>() % 2 == 0) {
        parse_resolutions(input);
    } else {
        parse_zone(input);
    }
}

}  // namespace lenswire::fuzz
