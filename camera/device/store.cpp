#include "camera/device/store.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace lenswire::camera {

Store Store::open(const std::string& folder, std::string* error) {
    Store store;
    std::error_code wrong;
    std::filesystem::create_directories(folder, wrong);
    if (wrong) {
        *error = folder + ": " + wrong.message();
    } else {
        store.folder_ = folder;
    }
    return store;
}

std::optional<Bytes> Store::load(const std::string& name, size_t size) const {
    if (folder_.empty()) return std::nullopt;
    std::ifstream file(folder_ + "/" + name + ".bin", std::ios::binary);
    const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.size() != size) return std::nullopt;
    return bytes;
}

bool Store::save(const std::string& name, const Bytes& bytes) const {
    if (folder_.empty()) return true;
    const std::string path = folder_ + "/" + name + ".bin";
    const std::string fresh = path + ".new";
    std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    std::error_code wrong;
    if (file.good()) std::filesystem::rename(fresh, path, wrong);
    return file.good() && !wrong;
}

}  // namespace lenswire::camera
