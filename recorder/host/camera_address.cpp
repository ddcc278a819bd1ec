#include "recorder/host/camera_address.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>

#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr int kMaxPort = 65535;
constexpr int kMaxByte = 255;  // channel and stream travel as one byte each

std::optional<int> number(std::string_view text, int lowest, int highest) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    if (value < lowest || value > highest) return std::nullopt;
    return value;
}

// Cuts `text` at the first `separator`; the second part is none when there is no separator.
std::pair<std::string_view, std::optional<std::string_view>> cut(std::string_view text, char separator) {
    const size_t at = text.find(separator);
    if (at == std::string_view::npos) return {text, std::nullopt};
    return {text.substr(0, at), text.substr(at + 1)};
}

void parse_credentials(std::string_view text, std::string_view what, CameraAddress& address) {
    const auto [user, password] = cut(text, ':');
    if (user.empty()) throw bad_input(std::string(what) + ": the user name is missing");
    if (user.size() >= sizeof(LoginInfo::szUserName)) {
        throw bad_input(std::string(what) + ": the user name is longer than 31 characters");
    }
    address.user = user;
    if (password) address.password = *password;
}

void parse_place(std::string_view text, std::string_view what, CameraAddress& address) {
    const auto fail = [&](const char* why) {
        return bad_input(std::string(what) + " '" + std::string(text) + "': " + why);
    };
    const auto [machine, path] = cut(text, '/');
    const auto [host, port_text] = cut(machine, ':');
    if (host.empty()) throw fail("the host is missing");
    const auto port = port_text ? number(*port_text, 1, kMaxPort) : std::optional(kDefaultPort);
    if (!port) throw fail("the port must be a number from 1 to 65535");
    address.host = host;
    address.port = *port;
    if (!path) return;
    const auto [channel_text, stream_text] = cut(*path, '/');
    const auto channel = number(channel_text, 0, kMaxByte);
    const auto stream = stream_text ? number(*stream_text, 0, kMaxByte) : std::optional(0);
    if (!channel || !stream) throw fail("channel and stream must be numbers from 0 to 255");
    address.channel = *channel;
    address.stream = *stream;
}

void check_password(const std::string& password, std::string_view what) {
    if (password.size() > sizeof(LoginInfo::szPassword)) {
        throw bad_input(std::string(what) + ": the password is longer than 32 characters");
    }
}

}  // namespace

std::string CameraAddress::name() const {
    return host + ":" + std::to_string(port);
}

std::string CameraAddress::dotted_ip() const {
    char text[INET_ADDRSTRLEN] = {};
    in_addr address{};
    address.s_addr = ip;
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

std::vector<std::string> take_names(std::vector<std::string>& cameras) {
    std::vector<std::string> names;
    for (std::string& camera : cameras) {
        const size_t mark = camera.find_first_of("=@:/");
        const bool named = mark != std::string::npos && mark > 0 && camera[mark] == '=';
        names.push_back(named ? camera.substr(0, mark) : "");
        if (named) camera.erase(0, mark + 1);
    }
    return names;
}

CameraAddress parse_camera_address(std::string_view text, std::string_view what) {
    // The last '@' divides, so that a password may contain one. Nothing before it is ever shown, and
    // without one nothing at all, since then the whole text may be a password.
    // Only what can be nothing but an address goes without.
    const size_t at = text.rfind('@');
    const bool bare = at == std::string_view::npos;
    if (bare && (text.find('.') == std::string_view::npos ||
                 text.find_first_not_of("0123456789.:/") != std::string_view::npos)) {
        throw bad_input(std::string(what) + ": expected user:password@host:port[/channel[/stream]]");
    }
    CameraAddress address;
    address.user = kDefaultUser;
    if (!bare) parse_credentials(text.substr(0, at), what, address);
    parse_place(bare ? text : text.substr(at + 1), what, address);
    if (address.password) check_password(*address.password, what);
    return address;
}

void resolve(CameraAddress& address) {
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(address.host.c_str(), nullptr, &wanted, &found);
    if (error != 0) {
        throw Failure(kUnreachable,
                      "camera " + address.name() + " cannot be reached: " + gai_strerror(error));
    }
    sockaddr_in first{};
    std::memcpy(&first, found->ai_addr, sizeof first);
    freeaddrinfo(found);
    address.ip = first.sin_addr.s_addr;
    if (address.ip == 0) throw bad_input("camera " + address.name() + ": 0.0.0.0 is no camera's address");
}

namespace {

std::optional<std::string> password_of_file(const std::string& file) {
    if (file.empty()) return std::nullopt;
    std::ifstream stream(file);
    std::string line;
    if (!std::getline(stream, line)) throw bad_input("cannot read a password from " + file);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    check_password(line, file);
    return line;
}

// HOST[:PORT] or * and the password, which may contain spaces.
std::map<std::string, std::string> passwords_of_list(const std::string& file) {
    std::map<std::string, std::string> passwords;
    if (file.empty()) return passwords;
    std::ifstream stream(file);
    if (!stream) throw bad_input("cannot read passwords from " + file);
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        const size_t space = line.find(' ');
        const std::string where = file + ":" + std::to_string(number);
        if (space == 0 || space == std::string::npos)
            throw bad_input(where + ": expected HOST[:PORT] PASSWORD");
        check_password(line.substr(space + 1), where);
        passwords[line.substr(0, space)] = line.substr(space + 1);
    }
    return passwords;
}

std::optional<std::string> password_of_environment(const std::string& variable) {
    const char* password = std::getenv(variable.c_str());
    if (password == nullptr) return std::nullopt;
    check_password(password, variable);
    return password;
}

std::string variable_of(const std::string& host) {
    std::string name = "LENSWIRE_PASSWORD_" + host;
    std::ranges::replace_if(
        name, [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

}  // namespace

std::vector<CameraAddress> camera_addresses(const std::vector<std::string>& arguments,
                                            const PasswordFiles& files) {
    const auto list = passwords_of_list(files.list);
    const auto for_all = password_of_file(files.for_all);
    std::vector<CameraAddress> addresses;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string what =
            arguments.size() == 1 ? "CAMERA" : "CAMERA " + std::to_string(i + 1) + " of the list";
        CameraAddress address = parse_camera_address(arguments[i], what);
        for (const std::string& key : {address.name(), address.host, std::string("*")}) {
            const auto listed = list.find(key);
            if (!address.password && listed != list.end()) address.password = listed->second;
        }
        if (!address.password) address.password = for_all;
        if (!address.password) address.password = password_of_environment(variable_of(address.host));
        if (!address.password) address.password = password_of_environment("LENSWIRE_PASSWORD");
        if (!address.password) {
            throw bad_input(what + ": no password: use --passwords, --password-file or LENSWIRE_PASSWORD");
        }
        addresses.push_back(std::move(address));
    }
    for (CameraAddress& address : addresses) resolve(address);
    return addresses;
}

LoginInfo login_info(const CameraAddress& address) {
    LoginInfo info{};
    std::memcpy(info.szUserName, address.user.data(), address.user.size());
    const std::string password = address.password.value_or("");
    std::memcpy(info.szPassword, password.data(), password.size());
    return info;
}

}  // namespace lenswire::recorder
