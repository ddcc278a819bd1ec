#include "camera/wire/packet.h"

#include "camera/wire/bytes.h"

namespace lenswire::camera {

PacketBytes to_bytes(const PacketHead& head) {
    PacketBytes bytes{};
    const uint32_t kind = head.video ? LENSWIRE_PACKET_VIDEO : LENSWIRE_PACKET_AUDIO;
    put_u16(&bytes[0], head.flag);
    bytes[3] = head.video ? head.frame_type : 0;
    put_u32(&bytes[4], kind | (head.length & LENSWIRE_PACKET_LENGTH_MAX) << LENSWIRE_PACKET_LENGTH_SHIFT);
    bytes[9] = head.codec;
    put_u32(&bytes[16], head.timestamp_ms);
    if (head.video) {
        put_u16(&bytes[20], head.width);
        put_u16(&bytes[22], head.height);
        put_u16(&bytes[24], head.frame_rate);
        put_u16(&bytes[26], head.attributes);
    }
    return bytes;
}

}  // namespace lenswire::camera
