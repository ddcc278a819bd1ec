#include "program.h"

#include "recorder/cli/commands.h"
#include "support/capture.h"

namespace lenswire::recorder {

nlohmann::json Outcome::json() const {
    const auto parsed = nlohmann::json::parse(out, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << out << err;
    return parsed.is_discarded() ? nlohmann::json() : parsed;
}

Outcome run_lenswire(Words arguments, const std::string& library) {
    arguments.insert(arguments.begin(), {"lenswire", "--library", library});
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const test::Capture capture;
    const int code = run_program(static_cast<int>(arguments.size()), argv.data());
    return {code, capture.out(), capture.err(), std::move(arguments)};
}

camera::Camera& ProgramTest::add_camera(camera::DeviceConfig device) {
    camera::CameraConfig config;
    config.address = camera::address_above("127.0.0.1", static_cast<uint32_t>(farm_.size()));
    config.password = "Secret";
    config.device = std::move(device);
    config.reboot_ms = 1;
    std::string error;
    camera::Camera* camera = farm_.add(config, &error);
    EXPECT_NE(camera, nullptr) << error;
    addresses_.push_back("admin:Secret@" + config.address + ":" + std::to_string(camera->port()));
    return *camera;
}

}  // namespace lenswire::recorder
