// lenswire-camera: simulated cameras on addresses of this machine.
#include <sys/resource.h>

#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "camera/device/layouts.h"
#include "camera/program/options.h"
#include "camera/serve/farm.h"

using namespace lenswire::camera;

namespace {

// Many cameras need many descriptors.
void raise_descriptor_limit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

std::string describe(const StreamConfig& stream) {
    if (stream.synthetic) {
        char text[64];
        std::snprintf(text, sizeof text, "synthetic %.3g Mbit/s", stream.synthetic->mbit);
        return text;
    }
    if (!stream.video) return "none";
    char text[64];
    std::snprintf(text, sizeof text, "%s %ux%u%s", clip_kind_name(stream.video->kind()),
                  stream.video->width(), stream.video->height(), stream.audio ? " audio" : "");
    return text;
}

void show_commands(Camera& camera) {
    const std::string name = camera.address() + ":" + std::to_string(camera.port());
    camera.watch_commands([name](const Command& command) {
        std::printf("%s %s\n", name.c_str(), describe(command).c_str());
        std::fflush(stdout);
    });
    camera.watch_faults([name](const std::string& line) {
        std::printf("%s %s\n", name.c_str(), line.c_str());
        std::fflush(stdout);
    });
}

void announce(const Camera& camera) {
    const CameraConfig& config = camera.config();
    std::printf("camera %s:%u user %s main %s sub %s\n", camera.address().c_str(), camera.port(),
                config.user.c_str(), describe(config.streams[0]).c_str(),
                describe(config.streams[1]).c_str());
}

void summarise(const Camera& camera) {
    const CameraStats stats = camera.stats();
    std::printf("camera %s:%u logins %" PRIu64 " refused %" PRIu64 " commands %" PRIu64
                " wrong-login-ids %" PRIu64 " malformed %" PRIu64 " motion-pushes %" PRIu64 "\n",
                camera.address().c_str(), camera.port(), stats.logins, stats.refused_logins, stats.commands,
                stats.wrong_login_ids, stats.malformed, stats.motion_pushes);
    for (const StreamStats& stream : camera.streams()) {
        std::printf("stream %s:%u channel %u stream %u video %" PRIu64 " audio %" PRIu64 " bytes %" PRIu64
                    " first-ms %" PRIu32 " last-ms %" PRIu32 " most-late-ms %" PRId64 "\n",
                    camera.address().c_str(), camera.port(), stream.channel, stream.stream,
                    stream.video_frames, stream.audio_frames, stream.bytes, stream.first_timestamp_ms,
                    stream.last_timestamp_ms, stream.most_late_us / 1000);
    }
    for (const UploadStats& upload : camera.uploads()) {
        std::printf("upload %s:%u announced %" PRIu64 " received %" PRIu64 " %s answer %s\n",
                    camera.address().c_str(), camera.port(), upload.announced, upload.received,
                    upload.complete ? "complete" : "incomplete",
                    upload.answered ? std::to_string(upload.state).c_str() : "none");
    }
}

// A process list shows the command line.
void hide_passwords(int argc, char** argv) {
    constexpr std::string_view kOption = "--password";
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        char* secret = nullptr;
        if (word == kOption && i + 1 < argc) secret = argv[i + 1];
        if (word.starts_with(kOption) && word.substr(kOption.size()).starts_with("="))
            secret = argv[i] + kOption.size() + 1;
        if (secret != nullptr) std::memset(secret, '*', std::strlen(secret));
    }
}

void wait_for_end(double seconds, const sigset_t& signals) {
    if (seconds == 0) {
        int signal = 0;
        sigwait(&signals, &signal);
        return;
    }
    timespec time{};
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * 1e9);
    sigtimedwait(&signals, nullptr, &time);
}

}  // namespace

int main(int argc, char** argv) {
    int exit_code = 0;
    const auto options = parse_options(argc, argv, &exit_code);
    hide_passwords(argc, argv);
    if (!options) return exit_code;
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before the first thread, so that all of them inherit it
    std::signal(SIGPIPE, SIG_IGN);
    raise_descriptor_limit();

    CameraFarm farm(options->threads);
    for (const CameraConfig& config : options->cameras) {
        std::string error;
        if (farm.add(config, &error) == nullptr) {
            std::fprintf(stderr, "lenswire-camera: %s\n", error.c_str());
            return 1;
        }
    }
    for (const auto& [camera, fault] : options->faults) farm[camera].add_fault(fault);
    for (size_t i = 0; i < farm.size(); ++i) {
        announce(farm[i]);
        if (options->show) show_commands(farm[i]);
    }
    std::fflush(stdout);
    wait_for_end(options->seconds, signals);
    for (size_t i = 0; i < farm.size(); ++i) {
        farm[i].stop();
        summarise(farm[i]);
    }
    return 0;
}
