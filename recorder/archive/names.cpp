#include "recorder/archive/names.h"

namespace lenswire::recorder {
namespace {

bool plain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
}

std::string sanitised(const std::string& text) {
    std::string result;
    for (const char c : text) result += plain(c) || (c == '.' && !result.empty()) ? c : '_';
    return result.empty() ? "_" : result;
}

}  // namespace

std::string stream_name(const StreamIdentity& identity) {
    std::string name = sanitised(identity.name.empty() ? identity.host : identity.name);
    if (identity.name.empty() && identity.port != kDefaultPort) name += "-" + std::to_string(identity.port);
    if (identity.channel > 0) name += "-ch" + std::to_string(identity.channel);
    if (identity.stream > 0) name += "-sub";
    if (identity.stream > 1) name += std::to_string(identity.stream);
    return name;
}

}  // namespace lenswire::recorder
