// The CAMERA argument of every command: user:password@host:port[/channel[/stream]].
//
// The password may also come from a file or from the environment. No message built here contains any part
// of the credentials.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lenswire/records.h"

namespace lenswire::recorder {

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

// Throws a bad-input Failure. `what` says which argument is meant, for the message.
CameraAddress parse_camera_address(std::string_view text, std::string_view what = "CAMERA");

// Looks the host up. Throws a camera Failure when it has no IPv4 address.
void resolve(CameraAddress& address);

// The password for cameras whose text has none: the first line of `file` if it is named, else the
// environment's LENSWIRE_PASSWORD, else none.
std::optional<std::string> default_password(const std::string& file);

// Parses, fills in passwords and resolves every argument.
std::vector<CameraAddress> camera_addresses(const std::vector<std::string>& arguments,
                                            const std::string& password_file);

LoginInfo login_info(const CameraAddress& address);

}  // namespace lenswire::recorder
