// A folder of a test's own. It goes with the test.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

namespace lenswire::test {

inline std::vector<uint8_t> file_bytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Folder {
  public:
    Folder() {
        std::string name = testing::TempDir() + "lenswire-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) std::abort();
        path_ = name;
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path() const { return path_; }
    std::string path(const std::string& name) const { return path_ / name; }

    // Returns the path of the file.
    std::string write(const std::string& name, std::span<const uint8_t> bytes) const {
        std::ofstream file(path(name), std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return path(name);
    }
    std::vector<uint8_t> read(const std::string& name) const { return file_bytes(path(name)); }

  private:
    std::filesystem::path path_;
};

}  // namespace lenswire::test
