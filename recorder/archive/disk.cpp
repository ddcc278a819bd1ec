#include "recorder/archive/disk.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "recorder/support/descriptor.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

namespace fs = std::filesystem;

class RealFile : public DiskFile {
  public:
    explicit RealFile(int descriptor) : descriptor_(descriptor) {}
    int write(int64_t offset, std::span<const uint8_t> bytes) override {
        while (!bytes.empty()) {
            const ssize_t written = pwrite(descriptor_.number(), bytes.data(), bytes.size(), offset);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return written < 0 ? errno : EIO;
            offset += written;
            bytes = bytes.subspan(static_cast<size_t>(written));
        }
        return 0;
    }
    int sync() override { return fdatasync(descriptor_.number()) == 0 ? 0 : errno; }

  private:
    Descriptor descriptor_;
};

int sync_folder(const fs::path& folder) {
    const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return descriptor.number() >= 0 && fsync(descriptor.number()) == 0 ? 0 : errno;
}

}  // namespace

FolderLock::FolderLock(const std::string& folder)
    : descriptor_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (descriptor_ >= 0 && flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
    const int error = errno;
    if (descriptor_ >= 0) close(descriptor_);
    throw bad_input(folder + ": " +
                    (error == EWOULDBLOCK ? "a recorder is at work there" : std::strerror(error)));
}

FolderLock::~FolderLock() {
    close(descriptor_);
}

int RealDisk::create(const std::string& path, std::shared_ptr<DiskFile>& file) {
    std::error_code error;
    fs::create_directories(fs::path(at(path)).parent_path(), error);
    if (error) return error.value();
    const int descriptor = open(at(path).c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    if (descriptor < 0) return errno;
    file = std::make_shared<RealFile>(descriptor);
    return 0;
}

int RealDisk::sync(const std::string& path) {
    const Descriptor descriptor(open(at(path).c_str(), O_RDONLY | O_CLOEXEC));
    return descriptor.number() >= 0 && fdatasync(descriptor.number()) == 0 ? 0 : errno;
}

int RealDisk::sync_name(const std::string& path) {
    fs::path folder = fs::path(at(path)).parent_path();
    for (auto depth = std::ranges::count(path, '/'); depth >= 0; --depth, folder = folder.parent_path()) {
        if (const int error = sync_folder(folder); error != 0) return error;
    }
    return 0;
}

int RealDisk::remove(const std::string& path) {
    if (unlink(at(path).c_str()) != 0 && errno != ENOENT) return errno;
    rmdir(fs::path(at(path)).parent_path().c_str());  // fails while there are others in it
    return 0;
}

Disk::Space RealDisk::space() {
    struct statvfs info {};
    if (statvfs(root_.c_str(), &info) != 0) return {};
    return {.total = uint64_t{info.f_blocks} * info.f_frsize,
            .free = uint64_t{info.f_bavail} * info.f_frsize};
}

// Below OUT/<stream>/<day>/, and nowhere else.
std::vector<std::string> RealDisk::list() {
    std::vector<std::string> paths;
    std::error_code error;
    auto entry =
        fs::recursive_directory_iterator(root_, fs::directory_options::skip_permission_denied, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        if (entry.depth() == 2 && entry->path().extension() == ".mkv")
            paths.push_back(fs::path(entry->path()).lexically_relative(root_));
    }
    std::ranges::sort(paths);
    return paths;
}

int64_t RealDisk::size(const std::string& path) {
    struct stat info {};
    return stat(at(path).c_str(), &info) == 0 ? info.st_size : -1;
}

std::string RealDisk::digest(const std::string& path, const std::atomic<bool>* stop) {
    const Descriptor descriptor(open(at(path).c_str(), O_RDONLY | O_CLOEXEC));
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> sum(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    if (descriptor.number() < 0 || !sum) return "";
    EVP_DigestInit_ex(sum.get(), EVP_sha256(), nullptr);
    std::vector<uint8_t> block(256 * 1024);
    ssize_t length = 0;
    while ((length = read(descriptor.number(), block.data(), block.size())) > 0) {
        if (stop != nullptr && *stop) return "";
        EVP_DigestUpdate(sum.get(), block.data(), static_cast<size_t>(length));
    }
    if (length < 0) return "";
    uint8_t bytes[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    EVP_DigestFinal_ex(sum.get(), bytes, &size);
    std::string text;
    for (unsigned i = 0; i < size; ++i) {
        text += "0123456789abcdef"[bytes[i] >> 4];
        text += "0123456789abcdef"[bytes[i] & 15];
    }
    return text;
}

}  // namespace lenswire::recorder
