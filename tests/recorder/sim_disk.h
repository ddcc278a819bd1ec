// A disk in memory that can be full, refuse, and lose its power: then of each file stays what was synced, and
// of what came later as much as chance will have it; a name that was not synced may be gone, and a file that
// was removed may be there again.
#pragma once

#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "recorder/archive/disk.h"

namespace lenswire::recorder {

class SimDisk : public Disk {
  public:
    struct Content {
        void sync() {
            synced = bytes.size();
            written_over.clear();
        }

        std::vector<uint8_t> bytes;
        size_t synced = 0;  // so many of them are on the disk, but for what was written over since
        std::vector<std::pair<size_t, std::vector<uint8_t>>> written_over;  // at, what the disk has there
        bool named = false;                                                 // its name was synced
        bool looked_at = false;            // it was cut off, and read for what is left
        std::optional<uint64_t> pictures;  // of a file whose digest was taken
    };

    SimDisk(uint64_t total, std::string scratch) : total_(total), scratch_(std::move(scratch)) {}

    int create(const std::string& path, std::shared_ptr<DiskFile>& file) override;
    int sync(const std::string& path) override;
    int sync_name(const std::string& path) override;
    int remove(const std::string& path) override;
    Space space() override { return {.total = total_, .free = used() < total_ ? total_ - used() : 0}; }
    std::vector<std::string> list() override;
    int64_t size(const std::string& path) override;
    FileContents contents(const std::string& path) override;
    FileContents decoded(const std::string& path) override { return contents(path); }
    std::string digest(const std::string& path, const std::atomic<bool>* stop) override;

    // None until its digest was taken.
    std::optional<uint64_t> pictures(const std::string& path) const {
        const auto found = files_.find(path);
        return found != files_.end() ? found->second->pictures : std::nullopt;
    }

    void cut_power(std::mt19937& random);
    // So much is taken by others.
    void occupy(uint64_t bytes) { occupied_ = bytes; }
    uint64_t recorded() const { return recorded_; }

  private:
    friend class SimFile;
    uint64_t used() const { return recorded_ + occupied_; }

    uint64_t total_;
    uint64_t occupied_ = 0;
    uint64_t recorded_ = 0;
    unsigned digests_ = 0;
    std::string scratch_;
    std::map<std::string, std::shared_ptr<Content>> files_;
    std::map<std::string, std::shared_ptr<Content>> removed_;  // lately
};

}  // namespace lenswire::recorder
