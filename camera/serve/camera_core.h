// The camera behind the interface: everything here runs under the loop's lock.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "camera/device/settings.h"
#include "camera/serve/camera_config.h"
#include "camera/serve/connection.h"
#include "camera/serve/loop.h"

namespace lenswire::camera {

class CameraCore final : public ConnectionOwner {
  public:
    CameraCore(Loop& loop, CameraConfig config);
    ~CameraCore();

    bool start(std::string* error);
    void stop();
    void restart_in(int64_t down_ms);

    CameraStats stats() const;
    size_t send_to_all(const Bytes& bytes);
    size_t push_motion(uint8_t state);
    void finish_streams(bool close);
    void drop_control_connections();

    CameraConfig config;
    uint16_t port = 0;
    bool running = false;
    Settings settings;
    std::vector<AnswerFault> answer_faults;
    std::vector<StreamFault> stream_faults;
    std::vector<UploadFault> upload_faults;
    std::map<uint16_t, CommandHook> hooks;
    std::function<void(const Command&)> watcher;
    std::function<void(const std::string&)> fault_watcher;
    std::deque<std::shared_ptr<StreamStats>> streams;
    std::deque<std::shared_ptr<UploadStats>> uploads;
    std::deque<Received> received;

  private:
    // The listening socket; takes every connection that waits.
    class Listener : public Watched {
      public:
        Listener(CameraCore& core, int fd) : core_(core), fd_(fd) {}
        ~Listener() override { close(); }
        void on_ready(uint32_t events) override;
        void close();

      private:
        CameraCore& core_;
        int fd_;
    };

    using Handler = void (CameraCore::*)(Connection&, const Command&);
    struct HandlerRow {
        uint16_t code;
        bool needs_login;
        Handler handler;
    };
    static const HandlerRow kHandlers[];

    void on_command(Connection& connection, const Command& command) override;
    void on_close(Connection* connection) override;
    bool is_upload(const Connection& connection, const Command& header) const override;
    void on_upload(Connection& connection, const Command& header) override;
    void on_upload_done(Connection& connection, const UploadFault& fault, UploadStats& upload,
                        uint16_t state) override;
    void babble(Connection& connection) override;
    void count_malformed() override { ++stats_.malformed; }

    void on_accept(int fd);
    bool has_login(const Connection& connection, const Command& command);
    void on_serial(Connection& connection, const Command& command);
    void on_login(Connection& connection, const Command& command);
    void on_heartbeat(Connection& connection, const Command& command);
    void on_stream(Connection& connection, const Command& command);
    void on_setting(Connection& connection, const Command& command);
    bool answer(Connection& connection, const Command& answer);  // false when it is never sent
    // Says that a fault strikes, and at what.
    void strike(const std::string& name, const std::string& where);
    std::optional<AnswerFault> take_answer_fault(uint16_t code);
    std::vector<StreamFault> take_stream_faults();
    UploadFault take_upload_faults();
    void note_received(const Connection& connection, const Command& command);
    void reboot();
    void on_motion_time();

    Loop& loop_;
    std::unique_ptr<Listener> listener_;
    std::vector<std::unique_ptr<Connection>> connections_;
    CameraStats stats_;
    uint32_t last_number_ = 0;
    uint32_t upload_number_ = 0;
    int64_t start_us_;
    Timer motion_timer_;
    Timer restart_timer_;
    Timer reboot_timer_;
    uint8_t motion_state_ = 0;
    bool settings_loaded_ = false;
};

}  // namespace lenswire::camera
