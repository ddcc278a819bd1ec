// What a camera makes of the commands that it receives.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "camera/serve/camera_core.h"
#include "camera/wire/login.h"
#include "lenswire/protocol.h"

namespace lenswire::camera {
namespace {

constexpr size_t kMostKept = 4096;           // stream and upload records
constexpr int64_t kRebootDelayUs = 100'000;  // between the answer to a good upload and the reboot

// The 32 bytes that describe a stream to whoever asked for it.
Bytes describe_stream(const Command& request, const Frame& first) {
    Bytes description(LENSWIRE_STREAM_ANSWER_SIZE);
    description[0] = request.payload[0];
    description[1] = request.payload[1];
    description[2] = first.head.codec;
    description[3] = static_cast<uint8_t>(first.head.frame_rate);
    put_u16(&description[4], first.head.width);
    put_u16(&description[6], first.head.height);
    return description;
}

}  // namespace

const CameraCore::HandlerRow CameraCore::kHandlers[] = {
    {LENSWIRE_CMD_SERIAL, false, &CameraCore::on_serial},
    {LENSWIRE_CMD_LOGIN, false, &CameraCore::on_login},
    {LENSWIRE_CMD_HEARTBEAT, true, &CameraCore::on_heartbeat},
    {LENSWIRE_CMD_STREAM, true, &CameraCore::on_stream},
    {LENSWIRE_CMD_FISH_PROPERTY_GET, false, &CameraCore::on_setting},
};

// A control connection proves itself with its own id, any other connection with one that is logged in.
bool CameraCore::has_login(const Connection& connection, const Command& command) {
    if (connection.logged_in()) return connection.login_id() == command.login_id;
    return command.login_id != 0 &&
           std::any_of(connections_.begin(), connections_.end(),
                       [&](const auto& each) { return each->login_id() == command.login_id; });
}

void CameraCore::note_received(const Connection& connection, const Command& command) {
    ++stats_.commands;
    received.push_back({connection.number(), command});
    if (received.size() > kMostCommandsKept) received.pop_front();
    if (watcher) watcher(command);
    if (command.tag1 != 1 || command.tag2 != 1 || !command.reserved_clear) count_malformed();
    loop_.report_change();
}

void CameraCore::on_command(Connection& connection, const Command& command) {
    note_received(connection, command);
    if (command.flag != LENSWIRE_FLAG_COMMAND) {
        count_malformed();
        return;
    }
    const auto* row = std::find_if(std::begin(kHandlers), std::end(kHandlers),
                                   [&](const HandlerRow& each) { return each.code == command.code; });
    const bool needs_login = row == std::end(kHandlers) || row->needs_login;
    if (needs_login && !has_login(connection, command)) {
        ++stats_.wrong_login_ids;
        if (config.require_login) {
            answer(connection, answer_to(command, {}, kStateNotLoggedIn));
            return;
        }
    }
    const auto hook = hooks.find(command.code);
    if (hook != hooks.end() && row == std::end(kHandlers)) {
        const auto hooked = CommandHook(hook->second)(command);
        if (hooked) answer(connection, *hooked);
        return;
    }
    const Handler handler = row == std::end(kHandlers) ? &CameraCore::on_setting : row->handler;
    (this->*handler)(connection, command);
}

void CameraCore::on_serial(Connection& connection, const Command& command) {
    const DesBlock serial = random_serial();
    connection.set_serial(serial);
    answer(connection, answer_to(command, Bytes(serial.begin(), serial.end())));
}

void CameraCore::on_login(Connection& connection, const Command& command) {
    const auto& serial = connection.serial();
    const LoginVerdict verdict = serial ? check_login(command.payload, *serial, config.user, config.password)
                                        : LoginVerdict::kMalformed;
    const bool refused_by_fault =
        std::any_of(answer_faults.begin(), answer_faults.end(), [](const AnswerFault& fault) {
            return fault.code == LENSWIRE_CMD_LOGIN && fault.state.value_or(0) != 0;
        });
    if (verdict != LoginVerdict::kAccepted || refused_by_fault) {
        ++stats_.refused_logins;
        answer(connection, answer_to(command, {}, kStateRefused));
        return;
    }
    ++stats_.logins;
    connection.set_login_id(random_login_id());
    Command reply = answer_to(command, {});
    reply.login_id = connection.login_id();
    answer(connection, reply);
}

void CameraCore::on_heartbeat(Connection& connection, const Command& command) {
    ++stats_.heartbeats;
    if (config.answer_heartbeats) answer(connection, answer_to(command, {}));
}

void CameraCore::on_stream(Connection& connection, const Command& command) {
    if (command.payload.size() != LENSWIRE_STREAM_REQUEST_SIZE || connection.logged_in() ||
        connection.is_stream()) {
        count_malformed();
        answer(connection, answer_to(command, {}, kStateBadRequest));
        return;
    }
    const uint8_t channel = command.payload[0];
    const uint8_t stream = command.payload[1];
    const StreamConfig wanted = stream < config.streams.size() ? config.streams[stream] : StreamConfig{};
    const uint32_t seed = synthetic_seed(config.number, channel, stream);
    auto source = FrameSource::make(wanted, seed);
    if (!source) {
        answer(connection, answer_to(command, {}, kStateUnsupported));
        return;
    }
    const Frame first = FrameSource::make(wanted, seed)->next();
    const bool answered = answer(connection, answer_to(command, describe_stream(command, first)));
    if (!answered || connection.fd() < 0) return;
    auto stats = std::make_shared<StreamStats>();
    stats->channel = channel;
    stats->stream = stream;
    streams.push_back(stats);
    if (streams.size() > kMostKept) streams.pop_front();
    connection.start_stream({.config = wanted,
                             .source = std::move(source),
                             .faults = take_stream_faults(),
                             .stats = std::move(stats),
                             .timestamp_base_ms = static_cast<uint32_t>((loop_.now_us() - start_us_) / 1000),
                             .gather_us = config.gather_us,
                             .struck = [this, channel, stream](const StreamFault& fault) {
                                 strike(fault.name, "channel " + std::to_string(channel) + " stream " +
                                                        std::to_string(stream) + " frame " +
                                                        std::to_string(fault.at_frame));
                             }});
}

bool CameraCore::is_upload(const Connection& connection, const Command& header) const {
    return header.code == LENSWIRE_CMD_UPGRADE && header.flag == LENSWIRE_FLAG_COMMAND &&
           !connection.is_stream();
}

void CameraCore::on_upload(Connection& connection, const Command& header) {
    note_received(connection, header);
    if (header.buffer_num != 1) count_malformed();
    auto stats = std::make_shared<UploadStats>();
    uploads.push_back(stats);
    if (uploads.size() > kMostKept) uploads.pop_front();
    std::string keep_as;
    if (!config.keep_firmware_dir.empty()) {
        keep_as =
            config.keep_firmware_dir + "/" + config.address + "-" + std::to_string(++upload_number_) + ".bin";
    }
    UploadFault fault = take_upload_faults();
    strike(fault.name, "firmware upload");
    connection.start_upload({.announced = announced_length(header),
                             .fault = std::move(fault),
                             .keep_as = std::move(keep_as),
                             .stats = std::move(stats)});
}

void CameraCore::on_upload_done(Connection& connection, const UploadFault& fault, UploadStats& upload,
                                uint16_t state) {
    if (fault.silent) return;
    upload.answered = true;
    upload.state = state;
    ++(state == 0 ? stats_.uploads : stats_.failed_uploads);
    Command reply;
    reply.code = LENSWIRE_CMD_UPGRADE;
    reply.state = state;
    if (fault.late_ms == 0) {
        answer(connection, reply);
    } else {
        connection.send({.bytes = to_bytes(reply)}, loop_.now_us() + fault.late_ms * 1000);
    }
    if (state == 0) reboot_timer_.arm(loop_.now_us() + fault.late_ms * 1000 + kRebootDelayUs);
}

void CameraCore::babble(Connection& connection) {
    Command nonsense;
    nonsense.code = LENSWIRE_CMD_HEARTBEAT;
    connection.send({.bytes = to_bytes(nonsense)});
}

void CameraCore::reboot() {
    ++stats_.reboots;
    const std::string& next = config.next_firmware_name;
    settings.take_new_firmware(next.empty() ? next_firmware_name(settings.device().firmware_name) : next);
    restart_in(config.reboot_ms);
}

void CameraCore::on_setting(Connection& connection, const Command& command) {
    const auto [reply, understood] = settings.handle(command);
    if (!understood) count_malformed();
    if (reply) answer(connection, *reply);
}

void CameraCore::strike(const std::string& name, const std::string& where) {
    if (fault_watcher && !name.empty()) fault_watcher("fault " + name + " strikes: " + where);
}

bool CameraCore::answer(Connection& connection, const Command& answer) {
    const auto fault = take_answer_fault(answer.code);
    if (!fault) {
        connection.send({.bytes = to_bytes(answer)});
        return true;
    }
    char where[32];
    std::snprintf(where, sizeof where, "answer to 0x%04x", answer.code);
    strike(fault->name, where);
    if (fault->silent) return false;
    connection.send({.bytes = spoil(answer, *fault),
                     .piece = fault->piece,
                     .gap_us = fault->piece_gap_ms * 1000,
                     .close_after = fault->close_after},
                    fault->delay_ms == 0 ? 0 : loop_.now_us() + fault->delay_ms * 1000);
    return true;
}

}  // namespace lenswire::camera
