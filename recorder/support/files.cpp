#include "recorder/support/files.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "recorder/support/failure.h"

namespace lenswire::recorder {

Bytes read_file(const std::string& path, size_t size) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw bad_input("cannot read " + path + ": " + std::strerror(errno));
    Bytes bytes(size + 1);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (static_cast<size_t>(file.gcount()) != size) {
        throw bad_input(path + " must have " + std::to_string(size) + " bytes");
    }
    bytes.resize(size);
    return bytes;
}

void write_file(const std::string& path, std::span<const uint8_t> bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw bad_input("cannot write " + path + ": " + std::strerror(errno));
}

}  // namespace lenswire::recorder
