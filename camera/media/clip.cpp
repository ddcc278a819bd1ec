#include "camera/media/clip.h"

#include <cerrno>
#include <cstdio>
#include <optional>

#include "camera/media/picture_size.h"
#include "camera/wire/packet.h"

namespace lenswire::camera {
namespace {

constexpr size_t kAudioPacketBytes = 320;  // 40 ms of 8000 Hz

std::vector<AccessUnit> split_audio(std::span<const uint8_t> bytes) {
    std::vector<AccessUnit> units;
    for (size_t at = 0; at + kAudioPacketBytes <= bytes.size(); at += kAudioPacketBytes) {
        units.push_back({.offset = at, .length = kAudioPacketBytes, .key = true});
    }
    return units;
}

std::optional<PictureSize> no_picture_size(std::span<const uint8_t>) {
    return PictureSize{};
}

struct KindRow {
    ClipKind kind;
    const char* name;
    uint8_t codec;
    std::vector<AccessUnit> (*split)(std::span<const uint8_t>);
    std::optional<PictureSize> (*size)(std::span<const uint8_t>);
};

constexpr KindRow kKinds[] = {
    {ClipKind::kH264, "h264", LENSWIRE_CODEC_H264, split_h264, h264_picture_size},
    {ClipKind::kH265, "h265", LENSWIRE_CODEC_H265, split_h265, h265_picture_size},
    {ClipKind::kJpeg, "jpeg", LENSWIRE_CODEC_JPEG, split_jpeg, jpeg_picture_size},
    {ClipKind::kALaw, "alaw", kCodecALaw, split_audio, no_picture_size},
};

const KindRow& row_of(ClipKind kind) {
    return kKinds[static_cast<size_t>(kind)];
}

struct Ending {
    const char* text;
    ClipKind kind;
};

constexpr Ending kEndings[] = {
    {".h264", ClipKind::kH264},  {".264", ClipKind::kH264},  {".avc", ClipKind::kH264},
    {".h265", ClipKind::kH265},  {".265", ClipKind::kH265},  {".hevc", ClipKind::kH265},
    {".mjpeg", ClipKind::kJpeg}, {".mjpg", ClipKind::kJpeg}, {".jpg", ClipKind::kJpeg},
    {".jpeg", ClipKind::kJpeg},  {".alaw", ClipKind::kALaw}, {".al", ClipKind::kALaw},
};

std::optional<ClipKind> kind_of_file(const std::string& path) {
    for (const Ending& ending : kEndings) {
        if (path.ends_with(ending.text)) return ending.kind;
    }
    return std::nullopt;
}

std::string read_file(const std::string& path, Bytes* bytes) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (!file) return error_text(errno);
    uint8_t piece[65536];
    for (size_t got; (got = std::fread(piece, 1, sizeof piece, file.get())) > 0;) {
        bytes->insert(bytes->end(), piece, piece + got);
    }
    return std::ferror(file.get()) != 0 ? error_text(errno) : "";
}

}  // namespace

const char* clip_kind_name(ClipKind kind) {
    return row_of(kind).name;
}

std::shared_ptr<const Clip> Clip::open(const std::string& path, std::string* error) {
    const auto kind = kind_of_file(path);
    if (!kind) {
        *error = path + ": not a kind of clip that is known by its ending";
        return nullptr;
    }
    std::shared_ptr<Clip> clip(new Clip);
    clip->kind_ = *kind;
    std::string wrong = read_file(path, &clip->bytes_);
    if (wrong.empty()) wrong = clip->prepare();
    if (!wrong.empty()) {
        *error = path + ": " + wrong;
        return nullptr;
    }
    return clip;
}

std::string Clip::prepare() {
    const KindRow& row = row_of(kind_);
    units_ = row.split(bytes_);
    if (units_.empty()) return "holds no picture or sound";
    if (!units_.front().key) return "does not begin with a key frame";
    for (const AccessUnit& unit : units_) {
        if (unit.length > LENSWIRE_PACKET_LENGTH_MAX) return "holds a picture too large for a packet";
    }
    const auto size = row.size(bytes_);
    if (!size) return "does not say how large its pictures are";
    width_ = size->width;
    height_ = size->height;
    return {};
}

uint8_t Clip::codec() const {
    return row_of(kind_).codec;
}

}  // namespace lenswire::camera
