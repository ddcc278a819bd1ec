// The CAMERA argument of every command: [user[:password]@]host[:port][/channel[/stream]].
//
// The password may also come from a file or from the environment, for one camera or for all. No message built
// here contains any part of the credentials.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lenswire/records.h"
#include "recorder/archive/names.h"

namespace lenswire::recorder {

inline constexpr const char* kDefaultUser = "admin";

struct CameraAddress {
    std::string user;
    std::optional<std::string> password;  // none when the text has none
    std::string host;
    int port = 0;
    int channel = 0;  // the camera's own numbering
    int stream = 0;
    uint32_t ip = 0;  // network order, 0 until resolved

    // host:port, which names the camera in all output.
    std::string name() const;
    std::string dotted_ip() const;
};

// Takes the names off: front=admin@192.0.2.7. What stands before the first '=' is one when it can be. A name
// each; empty where none is given.
std::vector<std::string> take_names(std::vector<std::string>& cameras);

// Throws a bad-input Failure. `what` says which argument is meant, for the message.
CameraAddress parse_camera_address(std::string_view text, std::string_view what = "CAMERA");

// Looks the host up. Throws a camera Failure when it has no IPv4 address.
void resolve(CameraAddress& address);

// Where passwords come from for cameras whose text has none.
struct PasswordFiles {
    std::string for_all = {};  // whose first line is the password
    std::string list = {};     // of lines HOST[:PORT] PASSWORD, and * PASSWORD for all others

    PasswordFiles(const char* file) : for_all(file) {}
    PasswordFiles(std::string file = {}, std::string lines = {})
        : for_all(std::move(file)), list(std::move(lines)) {}
};

// Parses, fills in passwords and resolves every argument. Of passwords counts, in this order: that of the
// text; of the list; of the file for all; the environment's LENSWIRE_PASSWORD_10_0_0_7 for the
// camera 10.0.0.7, and LENSWIRE_PASSWORD.
std::vector<CameraAddress> camera_addresses(const std::vector<std::string>& arguments,
                                            const PasswordFiles& files);

LoginInfo login_info(const CameraAddress& address);

}  // namespace lenswire::recorder
