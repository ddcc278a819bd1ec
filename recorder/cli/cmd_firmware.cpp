// lenswire firmware check FILE --camera CAMERA
// lenswire firmware make STYLE [--camera CAMERA | --firmware NAME --platform NAME --sensor NAME]
#include <CLI/CLI.hpp>
#include <cstring>

#include "recorder/cli/command_line.h"
#include "recorder/records/firmware_file.h"

namespace lenswire::recorder {
namespace {

struct CheckOptions {
    std::string file;
    std::string camera;
};

struct MakeOptions {
    std::string style;
    std::string camera;
    FirmwareTarget target;
    uint64_t size = 64 * 1024;
    std::string directory = ".";
};

IpcDeviceInfo device_of(ControlSession& session) {
    const Bytes bytes = read_setting(session, readable_setting("device"));
    IpcDeviceInfo device{};
    std::memcpy(&device, bytes.data(), sizeof device);
    return device;
}

FirmwareTarget target_of(const IpcDeviceInfo& device) {
    return {.firmware = fixed_text(device.szFirmwareName, sizeof device.szFirmwareName),
            .platform = fixed_text(device.platform, sizeof device.platform),
            .sensor = fixed_text(device.sensortype, sizeof device.sensortype)};
}

// The library's checks one by one. Which of them counts depends on the camera's device type.
struct Verdict {
    const char* check;
    std::string result;
};

std::vector<Verdict> verdicts(const Plugin& library, IpcDeviceInfo device, const std::string& path) {
    const auto word = [](int result) { return result == 0 ? "fits" : "does not fit"; };
    const std::string firmware = fixed_text(device.szFirmwareName, sizeof device.szFirmwareName);
    const int by_name = library.QM_VT_NewUpgradeFileCheck(firmware.c_str(), path_for_library(path).data());
    return {{"by name",
             by_name == -2 ? "does not apply, the camera's name has no feature letters" : word(by_name)},
            {"by tokens", word(library.CheckUpgradFile3(&device, path.c_str()))},
            {"by header", word(library.CheckUpgradFile(&device, path.c_str()))},
            {"by tag", word(library.CheckUpgradFile2(device.ndevType, path.c_str()))}};
}

nlohmann::ordered_json describe(const FirmwareFile& file) {
    nlohmann::ordered_json json = {{"name", file.name}, {"size", file.size}, {"tagged", file.tagged}};
    if (!file.header) return json;
    const UpgradeFileHeader& header = *file.header;
    json["header"] = {{"platform", fixed_text(header.platform, sizeof header.platform)},
                      {"sensor", fixed_text(header.sensortype, sizeof header.sensortype)},
                      {"length", uint32_t{header.upgrateDataLen}}};
    return json;
}

std::string check_text(const FirmwareFile& file, const IpcDeviceInfo& device,
                       const std::vector<Verdict>& list, bool fits) {
    const FirmwareTarget camera = target_of(device);
    std::string text = "file       " + file.name + ", " + std::to_string(file.size) + " bytes" +
                       (file.tagged ? ", tagged" : "") + "\n";
    if (file.header && file.header->upgrateDataLen == file.size) {
        text += "header     platform " + fixed_text(file.header->platform, sizeof file.header->platform) +
                ", sensor " + fixed_text(file.header->sensortype, sizeof file.header->sensortype) + "\n";
    }
    text += "camera     type " + std::to_string(device.ndevType) + ", firmware " + camera.firmware;
    text += ", platform " + (camera.platform.empty() ? "not told" : camera.platform);
    text += ", sensor " + (camera.sensor.empty() ? "not told" : camera.sensor) + "\n";
    for (const Verdict& verdict : list) {
        std::string line = verdict.check;
        line.resize(11, ' ');
        text += line + verdict.result + "\n";
    }
    return text + "result     " + (fits ? "fits" : "does not fit") + "\n";
}

int check(const CheckOptions& options, const CommonOptions& common, Console& console) {
    const FirmwareFile file = look_at_firmware(options.file);
    auto session = log_in(options.camera, common, console);
    const IpcDeviceInfo device = device_of(*session);
    const auto list = verdicts(session->library(), device, options.file);
    auto path = path_for_library(options.file);
    const bool fits = session->library().Get_IPC_upgradeParam(session->channel(), path.data()) == 1;
    if (common.json) {
        nlohmann::ordered_json checks;
        for (const Verdict& verdict : list) checks[verdict.check] = verdict.result;
        Bytes bytes(sizeof device);
        std::memcpy(bytes.data(), &device, sizeof device);
        console.print(document({{"camera", session->camera().name()},
                                {"file", describe(file)},
                                {"device", record_json(*readable_setting("device").layout, bytes)},
                                {"checks", checks},
                                {"fits", fits}}));
    } else {
        console.print(check_text(file, device, list, fits));
    }
    return fits ? kDone : kFileDoesNotFit;
}

int make(const MakeOptions& options, const CommonOptions& common, Console& console) {
    if (!is_firmware_style(options.style)) {
        throw bad_input("'" + options.style + "' is no style; there are name, tokens, header and tag");
    }
    FirmwareTarget target = options.target;
    if (!options.camera.empty()) target = target_of(device_of(*log_in(options.camera, common, console)));
    const std::string path = make_firmware(options.style, target, options.size, options.directory);
    console.print(common.json ? document({{"path", path}, {"size", options.size}}) : path + "\n");
    return kDone;
}

void add_check(CLI::App* firmware, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* command = firmware->add_subcommand("check", "Say whether and why a file fits a camera");
    command->add_option("FILE", options->file)->required();
    command->add_option("--camera", options->camera, kCameraHelp)->required();
    run_when_chosen(command, options, common, chosen, check);
}

void add_make(CLI::App* firmware, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<MakeOptions>();
    CLI::App* command = firmware->add_subcommand("make", "Write a small valid file, for trying");
    command->add_option("STYLE", options->style, "name, tokens, header or tag")->required();
    command->add_option("--camera", options->camera, "Make it fit this camera: user:password@host:port");
    command->add_option("--firmware", options->target.firmware, "Firmware name to fit, for name and tokens");
    command->add_option("--platform", options->target.platform,
                        "Platform name, that of the chip, for header");
    command->add_option("--sensor", options->target.sensor, "Sensor name, for header");
    command->add_option("--size", options->size, "Bytes")->capture_default_str();
    command->add_option("--out", options->directory, "Folder to write it to")->capture_default_str();
    run_when_chosen(command, options, common, chosen, make);
}

}  // namespace

void add_firmware(CLI::App& app, CommonOptions& common, Command& chosen) {
    CLI::App* firmware = app.add_subcommand("firmware", "Check and make firmware files");
    firmware->fallthrough()->require_subcommand(1);
    add_check(firmware, common, chosen);
    add_make(firmware, common, chosen);
}

}  // namespace lenswire::recorder
