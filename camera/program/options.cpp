#include "camera/program/options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "camera/serve/farm.h"
#include "lenswire/version.h"

namespace lenswire::camera {
namespace {

// As typed, before anything is opened or checked against another option.
struct Typed {
    uint32_t cameras = 1;
    std::string address = "127.0.0.1";
    uint16_t port = 7788;
    std::string user = "admin";
    std::string password = "admin";
    std::string password_file;
    std::string clips;
    std::string codecs = "h264";
    std::string clip;
    uint16_t frame_rate = 25;
    std::optional<double> synthetic;
    bool audio = false;
    std::string pace = "real";
    uint32_t link_mbit = 100;
    uint64_t frames = 0;
    double motion = 0;
    std::vector<std::string> faults;
    bool ignore_heartbeats = false;
    bool any_login_id = false;
    bool show = false;
    std::string state;
    DeviceConfig device;
    std::string keep_firmware;
    std::string next_firmware;
    double reboot = 0.5;
    unsigned threads = 1;
    double seconds = 0;
};

[[noreturn]] void refuse(const std::string& text) {
    throw std::runtime_error(text);
}

CLI::Validator at_most(size_t length) {
    return {[length](std::string& text) {
                return text.size() <= length ? "" : "longer than " + std::to_string(length) + " characters";
            },
            ""};
}

void declare(CLI::App& app, Typed& typed) {
    app.add_option("--cameras", typed.cameras, "How many cameras, on addresses upward from --address")
        ->check(CLI::Range(1U, 4096U));
    app.add_option("--address", typed.address, "Address of the first camera")->check(CLI::ValidIPV4);
    app.add_option("--port", typed.port, "Port of all cameras; 0 takes a free one for each");
    app.add_option("--user", typed.user, "User name");
    app.add_option(
           "--password", typed.password,
           "Password; on the command line others may see it for a moment, so better in the environment")
        ->envname("LENSWIRE_CAMERA_PASSWORD");
    app.add_option("--password-file", typed.password_file,
                   "File whose first line is the password, or with a line for each camera");
    app.add_option("--clips", typed.clips, "Folder of the clips (the ones that come with the program)");
    app.add_option(
        "--codecs", typed.codecs,
        "What the cameras play, in turn: h264, h265 or jpeg, each with +audio behind it or without");
    app.add_option("--clip", typed.clip, "Own clips instead: main=FILE,sub=FILE,audio=FILE");
    app.add_option("--fps", typed.frame_rate, "Frame rate of the clips")->check(CLI::Range(1, 1000));
    app.add_option("--synthetic", typed.synthetic,
                   "Made-up bytes of so many Mbit/s per stream instead of clips")
        ->check(CLI::Range(0.001, 1000.0));
    app.add_flag("--audio", typed.audio, "Audio beside the made-up bytes");
    app.add_option("--pace", typed.pace, "real, unpaced, or spread over the time that a link of --link takes")
        ->check(CLI::IsMember({"real", "unpaced", "spread"}));
    app.add_option("--link", typed.link_mbit, "Mbit/s of that link")->check(CLI::Range(1U, 100'000U));
    app.add_option("--frames", typed.frames, "Video frames after which a stream falls silent");
    app.add_option("--motion", typed.motion, "Push motion every so many seconds")
        ->check(CLI::Range(0.0, 86'400.0));
    app.add_option("--fault", typed.faults,
                   "What goes wrong, [CAMERA/]NAME[=VALUE][@FRAME][:CODE][*TIMES]; see below. May be given "
                   "several times");
    app.add_flag("--ignore-heartbeats", typed.ignore_heartbeats, "Do not answer heartbeats");
    app.add_flag("--any-login-id", typed.any_login_id, "Serve commands that carry a wrong login id, too");
    app.add_flag("--show", typed.show, "Say in words what is received, and when a fault strikes");
    app.add_option("--state", typed.state,
                   "Keep the settings in files, in a folder per camera below this one");
    // A byte's default would be shown as a character.
    app.add_option("--fisheye", typed.device.fisheye_type, "Fisheye type, 0 to 3")
        ->check(CLI::Range(0, 3))
        ->default_str(std::to_string(typed.device.fisheye_type));
    app.add_option("--device-type", typed.device.type, "Device type, 0 to 255")
        ->default_str(std::to_string(typed.device.type));
    app.add_option("--firmware-name", typed.device.firmware_name, "Firmware name")->check(at_most(63));
    app.add_option("--platform", typed.device.platform, "Platform name, that of the chip")->check(at_most(7));
    app.add_option("--sensor", typed.device.sensor, "Image sensor name")->check(at_most(7));
    app.add_flag("--special-family", typed.device.special_family,
                 "Mark the property block of the special family");
    app.add_option("--keep-firmware", typed.keep_firmware, "Keep good firmware uploads in this folder")
        ->check(CLI::ExistingDirectory);
    app.add_option("--next-firmware-name", typed.next_firmware,
                   "Firmware name after an upload (the present one counted up)")
        ->check(at_most(63));
    app.add_option("--reboot", typed.reboot, "Seconds that a camera is away after an upload")
        ->check(CLI::Range(0.0, 3600.0));
    app.add_option("--threads", typed.threads, "Threads that serve the cameras")->check(CLI::Range(1U, 64U));
    app.add_option("--seconds", typed.seconds, "End after that time")->check(CLI::Range(0.0, 1e9));
}

std::vector<std::string> split_list(const std::string& text) {
    std::vector<std::string> items;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find(',', at), text.size());
        items.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return items;
}

std::string find_clips(const std::string& given) {
    if (!given.empty()) return given;
    std::error_code wrong;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", wrong).parent_path();
    for (const auto& folder : {program / "../../../camera/clips", program / "../share/lenswire/clips",
                               std::filesystem::path(LENSWIRE_CLIPS)}) {
        if (std::filesystem::is_directory(folder, wrong)) return folder.lexically_normal().string();
    }
    refuse("no clips beside the program, name their folder with --clips");
}

// Clips by path, so that cameras share them.
class ClipShelf {
  public:
    std::shared_ptr<const Clip> get(const std::string& path) {
        auto& clip = clips_[path];
        std::string error;
        if (!clip) clip = Clip::open(path, &error);
        if (!clip) refuse(error);
        return clip;
    }

  private:
    std::map<std::string, std::shared_ptr<const Clip>> clips_;
};

using Streams = std::vector<StreamConfig>;

Streams own_streams(const std::string& text, ClipShelf& shelf) {
    Streams streams(2);
    std::shared_ptr<const Clip> audio;
    for (const std::string& item : split_list(text)) {
        const size_t mark = item.find('=');
        const std::string name = item.substr(0, mark);
        const bool known = name == "main" || name == "sub" || name == "audio";
        if (mark == std::string::npos || !known)
            refuse("--clip: " + item + ": not main=FILE, sub=FILE or audio=FILE");
        auto clip = shelf.get(item.substr(mark + 1));
        if (clip->is_video() == (name == "audio")) refuse("--clip: " + item + ": not the right kind of file");
        (name == "audio" ? audio : streams[name == "sub" ? 1 : 0].video) = std::move(clip);
    }
    for (StreamConfig& stream : streams) stream.audio = stream.video ? audio : nullptr;
    return streams;
}

Streams codec_streams(std::string codec, const std::string& folder, ClipShelf& shelf) {
    static const std::map<std::string, std::string> kEndings = {
        {"h264", "h264"}, {"h265", "h265"}, {"jpeg", "mjpeg"}};
    const std::string typed = codec;
    const bool audio = codec.ends_with("+audio");
    if (audio) codec.resize(codec.size() - 6);
    const auto ending = kEndings.find(codec);
    if (ending == kEndings.end())
        refuse("--codecs: " + typed + ": not h264, h265 or jpeg, with or without +audio");
    Streams streams(2);
    streams[0].video = shelf.get(folder + "/" + codec + "-main." + ending->second);
    streams[1].video = shelf.get(folder + "/" + codec + "-sub." + ending->second);
    if (audio) streams[0].audio = streams[1].audio = shelf.get(folder + "/tone.alaw");
    return streams;
}

// What each camera in turn plays.
std::vector<Streams> make_streams(const Typed& typed) {
    ClipShelf shelf;
    std::vector<Streams> turns;
    if (typed.synthetic) {
        StreamConfig stream;
        stream.synthetic =
            Synthetic{.mbit = *typed.synthetic, .frame_rate = typed.frame_rate, .audio = typed.audio};
        turns.push_back(Streams(2, stream));
    } else if (!typed.clip.empty()) {
        turns.push_back(own_streams(typed.clip, shelf));
    } else {
        const std::string folder = find_clips(typed.clips);
        for (const std::string& codec : split_list(typed.codecs))
            turns.push_back(codec_streams(codec, folder, shelf));
    }
    static const std::map<std::string, Pace> kPaces = {
        {"real", Pace::kRealTime}, {"unpaced", Pace::kUnpaced}, {"spread", Pace::kSpread}};
    for (Streams& streams : turns) {
        for (StreamConfig& stream : streams) {
            stream.frame_rate = typed.frame_rate;
            stream.pace = kPaces.at(typed.pace);
            stream.link_mbit = typed.link_mbit;
            stream.max_frames = typed.frames;
        }
    }
    return turns;
}

// One for each camera, or one for all.
std::vector<std::string> read_passwords(const Typed& typed) {
    std::vector<std::string> passwords;
    if (typed.password_file.empty()) {
        passwords.push_back(typed.password);
    } else {
        std::ifstream file(typed.password_file);
        for (std::string line; passwords.size() < typed.cameras && std::getline(file, line);)
            passwords.push_back(line);
        if (passwords.empty()) refuse("--password-file: " + typed.password_file + ": cannot be read");
    }
    for (const std::string& password : passwords) {
        if (password.size() > 32) refuse("the password is longer than the 32 characters of a login");
    }
    passwords.resize(passwords.size() == typed.cameras ? passwords.size() : 1);
    return passwords;
}

// One --fault, for the camera it names or for all.
void add_faults(Options& options, const std::string& text) {
    const size_t mark = text.find('/');
    size_t first = 0;
    size_t last = options.cameras.size();
    if (mark != std::string::npos) {
        size_t number = 0;
        if (!CLI::detail::lexical_cast(text.substr(0, mark), number) || number < 1 || number > last) {
            refuse("--fault: " + text + ": no such camera");
        }
        first = number - 1;
        last = number;
    }
    std::string error;
    const auto fault = parse_fault(mark == std::string::npos ? text : text.substr(mark + 1), &error);
    if (!fault) refuse("--fault: " + error);
    for (size_t camera = first; camera < last; ++camera) options.faults.emplace_back(camera, *fault);
}

Options make_options(const Typed& typed) {
    Options options;
    options.threads = typed.threads;
    options.seconds = typed.seconds;
    options.show = typed.show;
    if (typed.user.size() > 31) refuse("--user: longer than the 31 characters of a login");
    const std::vector<std::string> passwords = read_passwords(typed);
    const auto turns = make_streams(typed);
    for (uint32_t number = 0; number < typed.cameras; ++number) {
        CameraConfig camera;
        camera.address = address_above(typed.address, number);
        if (camera.address.empty()) refuse("--cameras: no addresses left above " + typed.address);
        camera.port = typed.port;
        camera.user = typed.user;
        camera.password = passwords[number % passwords.size()];
        camera.number = number;
        camera.streams = turns[number % turns.size()];
        camera.answer_heartbeats = !typed.ignore_heartbeats;
        camera.require_login = !typed.any_login_id;
        camera.device = typed.device;
        camera.device.name = "Camera " + std::to_string(number + 1);
        if (!typed.state.empty()) camera.device.state_dir = typed.state + "/" + camera.address;
        camera.keep_firmware_dir = typed.keep_firmware;
        camera.next_firmware_name = typed.next_firmware;
        camera.reboot_ms = static_cast<int64_t>(typed.reboot * 1000);
        camera.motion_every_ms = static_cast<int64_t>(typed.motion * 1000);
        options.cameras.push_back(std::move(camera));
    }
    for (const std::string& text : typed.faults) add_faults(options, text);
    return options;
}

// What was typed may be a password at the wrong place, so only the names of options are repeated.
std::string describe_extras(const CLI::App& app) {
    for (const std::string& extra : app.remaining()) {
        if (extra.starts_with("-")) return "no such option: " + extra.substr(0, extra.find('='));
    }
    return "an argument that belongs to no option";
}

int say_wrong(const std::string& what) {
    std::fprintf(stderr, "lenswire-camera: %s\n", what.c_str());
    return 2;
}

}  // namespace

std::optional<Options> parse_options(int argc, char** argv, int* exit_code) {
    Typed typed;
    CLI::App app("Simulated IP cameras: they take logins, answer commands and stream video.",
                 "lenswire-camera");
    app.option_defaults()->always_capture_default();
    declare(app, typed);
    app.set_version_flag("--version", "lenswire-camera " LENSWIRE_VERSION);
    app.footer(faults_help() +
               "For example, a camera that refuses the first two logins, and whose second stream breaks:\n"
               "  lenswire-camera --show --fault 'refuse-login*2' --fault close@100\n"
               "Exit codes:\n"
               "  0  ended by --seconds or a signal\n"
               "  1  a camera cannot be started: its address or port is not to be had\n"
               "  2  the command line, or a file it names, cannot be used\n");
    try {
        app.parse(argc, argv);
        return make_options(typed);
    } catch (const CLI::Success& help) {  // or version
        *exit_code = app.exit(help);
    } catch (const CLI::ExtrasError&) {
        *exit_code = say_wrong(describe_extras(app));
    } catch (const CLI::ParseError& wrong) {
        *exit_code = say_wrong(wrong.what());
    } catch (const std::runtime_error& wrong) {
        *exit_code = say_wrong(wrong.what());
    }
    return std::nullopt;
}

}  // namespace lenswire::camera
