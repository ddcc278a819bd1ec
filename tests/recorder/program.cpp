#include "program.h"

#include <sstream>

#include "recorder/cli/commands.h"
#include "support/capture.h"

namespace lenswire::recorder {

nlohmann::json Outcome::json() const {
    const auto parsed = nlohmann::json::parse(out, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << out << err;
    return parsed.is_discarded() ? nlohmann::json() : parsed;
}

Outcome ProgramTest::lenswire(const std::string& line, const std::string& library) {
    std::vector<std::string> words = {"lenswire", "--library", library};
    std::istringstream stream(line);
    for (std::string word; stream >> word;) {
        if (word.starts_with("DIR/")) word.replace(0, 4, folder_.path(""));
        words.push_back(word == "CAM" ? addresses_.at(0) : word);
    }
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const test::Capture capture;
    const int code = run_program(static_cast<int>(words.size()), argv.data());
    return {code, capture.out(), capture.err(), std::move(words)};
}

camera::Camera& ProgramTest::add_camera(camera::DeviceConfig device, const std::string& clip, uint64_t frames,
                                        const std::string& sound) {
    camera::CameraConfig config;
    config.address = camera::address_above("127.0.0.1", static_cast<uint32_t>(farm_.size()));
    config.password = "Secret";
    config.device = std::move(device);
    config.reboot_ms = 1;
    std::string error;
    for (camera::StreamConfig& stream : config.streams) {
        if (!clip.empty()) stream.video = camera::Clip::open(clip, &error);
        if (!sound.empty()) stream.audio = camera::Clip::open(sound, &error);
        stream.pace = camera::Pace::kUnpaced;
        stream.max_frames = frames;
    }
    camera::Camera* camera = farm_.add(config, &error);
    EXPECT_NE(camera, nullptr) << error;
    addresses_.push_back("admin:Secret@" + config.address + ":" + std::to_string(camera->port()));
    return *camera;
}

}  // namespace lenswire::recorder
