#include "recorder/cli/command_line.h"

#include <cstring>

namespace lenswire::recorder {

std::unique_ptr<ControlSession> log_in(const std::string& camera, const CommonOptions& common,
                                       Console& console) {
    CameraAddress address = camera_addresses({camera}, common.password_files()).front();
    console.divert_library(common.log, common.verbose);
    return std::make_unique<ControlSession>(std::move(address), common);
}

HostCameraRecord host_record(const ControlSession& session, int channel) {
    HostCameraRecord record{};
    record.ucChannelNo = static_cast<uint8_t>(channel);
    const std::string ip = session.camera().dotted_ip();
    std::memcpy(record.szIpAddr, ip.data(), ip.size());
    record.ulPort = static_cast<uint32_t>(session.camera().port);
    return record;
}

std::string document(const nlohmann::ordered_json& json) {
    // A camera's texts may be anything; what is not UTF-8 must not end the program.
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string one_line_document(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string setting_json(const ControlSession& session, const Setting& setting,
                         std::span<const uint8_t> record) {
    return document({{"camera", session.camera().name()},
                     {"channel", session.camera_channel()},
                     {"what", setting.name},
                     {"fields", record_json(*setting.layout, record)}});
}

}  // namespace lenswire::recorder
