// What the archive asks of a disk: little enough that a test can stall it, fill it, tear it and cut it off.
// Paths are relative to the archive's folder. Results are 0 or an errno.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "recorder/media/file_reader.h"

namespace lenswire::recorder {

class DiskFile {
  public:
    virtual ~DiskFile() = default;
    virtual int write(int64_t offset, std::span<const uint8_t> bytes) = 0;
    // Returns when everything written before is on the disk. May be called by another thread.
    virtual int sync() = 0;
};

class Disk {
  public:
    struct Space {
        uint64_t total = 0;
        uint64_t free = 0;
    };

    virtual ~Disk() = default;
    // Creates the file and the folders on the way; EEXIST when it is there.
    virtual int create(const std::string& path, std::shared_ptr<DiskFile>& file) = 0;
    // Returns when all of a file that somebody wrote before is on the disk.
    virtual int sync(const std::string& path) = 0;
    // Returns when the file's name, and those of the folders on the way, are on the disk.
    virtual int sync_name(const std::string& path) = 0;
    // Removes the file, and its folder when that is empty then.
    virtual int remove(const std::string& path) = 0;
    virtual Space space() = 0;

    virtual std::vector<std::string> list() = 0;        // every recorded file
    virtual int64_t size(const std::string& path) = 0;  // -1 when it is not there
    virtual FileContents contents(const std::string& path) = 0;
    virtual FileContents decoded(const std::string& path) = 0;  // only what decodes
    // SHA-256; empty when it cannot be read, or `stop` was raised before its end.
    virtual std::string digest(const std::string& path, const std::atomic<bool>* stop = nullptr) = 0;
};

// Held by the one recorder, or repair, that may work in a folder.
class FolderLock {
  public:
    explicit FolderLock(const std::string& folder);  // throws a bad-input Failure when another has it
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

  private:
    int descriptor_;
};

class RealDisk : public Disk {
  public:
    explicit RealDisk(std::string root) : root_(std::move(root)) {}

    int create(const std::string& path, std::shared_ptr<DiskFile>& file) override;
    int sync(const std::string& path) override;
    int sync_name(const std::string& path) override;
    int remove(const std::string& path) override;
    Space space() override;
    std::vector<std::string> list() override;
    int64_t size(const std::string& path) override;
    FileContents contents(const std::string& path) override { return read_contents(at(path), false); }
    FileContents decoded(const std::string& path) override { return read_contents(at(path), true); }
    std::string digest(const std::string& path, const std::atomic<bool>* stop) override;

    std::string at(const std::string& path) const { return root_ + "/" + path; }

  private:
    std::string root_;
};

}  // namespace lenswire::recorder
