// The text in which a camera lists its resolutions becomes a record.
#include <benchmark/benchmark.h>

#include <cstring>

#include "lenswire/encoding.h"

namespace {

constexpr char kShort[] =
    "H264:1920x1080;H264:1280x720;@H264:1920x1080,H264:640x360;H264:1280x720,H264:640x360;@H264:1920x1080,"
    "H264:"
    "640x360,H264:320x240;";
constexpr char kLong[] =
    "H265:3840x2160;H265:2592x1944;H265:1920x1080;H264:3840x2160;H264:2592x1944;H264:1920x1080;H264:1280x720;"
    "@"
    "H265:3840x2160,H265:704x576;H265:2592x1944,H264:704x576;H264:1920x1080,H264:640x360;H264:1280x720,H264:"
    "640x360;@H265:3840x2160,H265:704x576,H264:320x240;H264:1920x1080,H264:640x360,H264:320x240;";

void parse(benchmark::State& state, const char* text) {
    uint8_t payload[LENSWIRE_ENCODING_SCOPE_SIZE] = {};
    std::strcpy(reinterpret_cast<char*>(payload) + 3, text);
    for (auto _ : state) {
        EncodingScope scope{};
        if (Parse_EncodingResolution(&scope, payload) != 0) state.SkipWithError("the text was refused");
        benchmark::DoNotOptimize(scope);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * std::strlen(text)));
}
BENCHMARK_CAPTURE(parse, short_text, kShort)->Name("parse_resolutions/short");
BENCHMARK_CAPTURE(parse, long_text, kLong)->Name("parse_resolutions/long");

}  // namespace

BENCHMARK_MAIN();
