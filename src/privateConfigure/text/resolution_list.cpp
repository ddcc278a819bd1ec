#include "privateConfigure/text/resolution_list.h"

#include <algorithm>
#include <cstring>

#include "common/log.h"
#include "common/printable.h"
#include "privateConfigure/text/scan.h"

namespace lenswire::resolutions {

namespace {

constexpr int kStreamsMax = 3;
constexpr int kGroupsMax = 16;
constexpr int kCodecMax = sizeof(Item::codec) - 1;

bool holds_size(const EncodingScopeEntry& entry, uint32_t count, uint16_t width, uint16_t height) {
    return std::any_of(entry.slots, entry.slots + count, [=](const ResolutionSlot& slot) {
        return slot.usWidth == width && slot.usHeight == height;
    });
}

bool holds_name(const EncodingScopeEntry& entry, uint32_t count, const char* codec, size_t length) {
    if (length == 0) return false;
    return std::any_of(entry.slots, entry.slots + count, [=](const ResolutionSlot& slot) {
        return std::strncmp(slot.szCodec, codec, length) == 0;
    });
}

// "CODEC:WIDTHxHEIGHT,..." from here on; what the text does not supply stays as it is.
void scan_group(const Mode& mode, const char* text, Item* items) {
    Scanner scanner(text);
    for (int i = 0; i < mode.streams; ++i) {
        if (i > 0) scanner.literal(',');
        scanner.word(items[i].codec, kCodecMax).literal(':');
        scanner.integer(items[i].width).literal('x').integer(items[i].height);
    }
}

// Past the end of the group that begins here; null when none does.
const char* end_of_group(const Mode& mode, const char* text) {
    const char* end = std::strchr(text, ';');
    if (end == nullptr) end = std::strchr(text, mode.separator);
    return end == nullptr ? nullptr : end + 1;
}

}  // namespace

void add(EncodingScopeEntry& entry, Counters& held, int width, int height, const char* codec) {
    const auto width16 = static_cast<uint16_t>(width);
    const auto height16 = static_cast<uint16_t>(height);
    const uint32_t sizes = std::min<uint32_t>(held.sizes, LENSWIRE_RESOLUTIONS);
    if (sizes < LENSWIRE_RESOLUTIONS && !holds_size(entry, sizes, width16, height16)) {
        entry.slots[sizes].usWidth = width16;
        entry.slots[sizes].usHeight = height16;
        held.sizes = sizes + 1;
    }
    const size_t length = strnlen(codec, sizeof(ResolutionSlot::szCodec) - 1);
    const uint32_t names = std::min<uint32_t>(held.names, LENSWIRE_RESOLUTIONS);
    if (names < LENSWIRE_RESOLUTIONS && !holds_name(entry, names, codec, length)) {
        std::memcpy(entry.slots[names].szCodec, codec, length);
        entry.slots[names].szCodec[length] = '\0';
        held.names = names + 1;
    }
}

void parse(const Mode& mode, EncodingScopeEntry* entries, const char* text) {
    Counters held[kStreamsMax];
    Item items[kStreamsMax];
    for (int group = 0; group < kGroupsMax; ++group) {
        const char* next = end_of_group(mode, text);
        if (next == nullptr) break;
        for (Item& item : items) {
            if (mode.forgets_codec) std::memset(item.codec, 0, sizeof item.codec);
        }
        scan_group(mode, text, items);
        for (int i = 0; i < mode.streams; ++i) {
            add(entries[i], held[i], items[i].width, items[i].height, items[i].codec);
        }
        text = next;
    }
    for (int i = 0; i < mode.streams; ++i) entries[i].ulSizes = held[i].sizes;
}

}  // namespace lenswire::resolutions

using namespace lenswire;

namespace {

constexpr resolutions::Mode kSingle{.streams = 1, .separator = ':'};
constexpr resolutions::Mode kDouble{.streams = 2, .separator = ','};
constexpr resolutions::Mode kTriple{.streams = 3, .separator = ',', .forgets_codec = false};

constexpr size_t kListSize = 1024;

// Copies a list of this length, or what fits of it.
void copy_list(char* out, const char* list, size_t length) {
    length = std::min(length, kListSize - 1);
    std::memcpy(out, list, length);
    out[length] = '\0';
}

int parse_list(const char* operation, const resolutions::Mode& mode, void* entries, const char* text) {
    if (entries == nullptr || text == nullptr) {
        PRI_LOG_AS(operation, "Parameter input error\n");
        return -1;
    }
    resolutions::parse(mode, static_cast<EncodingScopeEntry*>(entries), text);
    return 0;
}

}  // namespace

int Parse_SinResolution(void* entry0, const char* text) {
    return parse_list(__func__, kSingle, entry0, text);
}

int Parse_DouResolution(void* entry1, const char* text) {
    return parse_list(__func__, kDouble, entry1, text);
}

int Parse_ThrResolution(void* entry3, const char* text) {
    return parse_list(__func__, kTriple, entry3, text);
}

int Parse_FiltRes(uint32_t* sizes, uint32_t* names, void* entry, int width, int height, const char* codec) {
    if (sizes == nullptr || names == nullptr || entry == nullptr || codec == nullptr) {
        PRI_LOG("Parameter input error\n");
        return -1;
    }
    resolutions::Counters held{.sizes = *sizes, .names = *names};
    resolutions::add(*static_cast<EncodingScopeEntry*>(entry), held, width, height, codec);
    *sizes = held.sizes;
    *names = held.names;
    return 0;
}

int Parse_EncodingResolution_Get(const char* text, char* single, char* twofold, char* triple) {
    if (text == nullptr || single == nullptr || twofold == nullptr) return -1;
    const char* first = std::strchr(text, '@');
    if (first == nullptr) {
        PRI_LOG("resolution only have single stream\n\n");
        return 0;
    }
    copy_list(single, text, static_cast<size_t>(first - text));
    const char* rest = first + 1;
    const char* second = std::strchr(rest, '@');
    if (second == nullptr) {
        copy_list(twofold, rest, std::strlen(rest));
        return 0;
    }
    if (triple == nullptr) return -1;
    copy_list(twofold, rest, static_cast<size_t>(second - rest));
    copy_list(triple, second + 1, std::strlen(second + 1));
    return 1;
}

int Parse_EncodingResolution(void* scope, const void* payload) {
    if (scope == nullptr || payload == nullptr) {
        PRI_LOG("Parameter input error\n");
        return -1;
    }
    char text[resolutions::kTextMax + 1] = {};
    const char* received = static_cast<const char*>(payload) + resolutions::kTextOffset;
    std::memcpy(text, received, strnlen(received, resolutions::kTextMax));
    if (std::strstr(text, "H264") == nullptr && std::strstr(text, "H265") == nullptr) {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(text);
        PRI_LOG("input resolution error   resolution is  :  %s \n\n", Printable({bytes, sizeof text}).text());
        return -1;
    }
    char single[kListSize] = {};
    char twofold[kListSize] = {};
    char triple[kListSize] = {};
    EncodingScopeEntry* entries = static_cast<EncodingScope*>(scope)->entries;
    const int split = Parse_EncodingResolution_Get(text, single, twofold, triple);
    if (split < 0 || Parse_SinResolution(&entries[0], single) != 0 ||
        Parse_DouResolution(&entries[1], twofold) != 0 ||
        (split == 1 && Parse_ThrResolution(&entries[3], triple) != 0)) {
        PRI_LOG("Parse_EncodingResolution_Get error\n\n");
        return -1;
    }
    return 0;
}
