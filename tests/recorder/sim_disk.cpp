#include "sim_disk.h"

#include <algorithm>
#include <fstream>

namespace lenswire::recorder {

class SimFile : public DiskFile {
  public:
    SimFile(SimDisk& disk, std::shared_ptr<SimDisk::Content> content)
        : disk_(disk), content_(std::move(content)) {}

    // A full disk takes what fits.
    int write(int64_t offset, std::span<const uint8_t> bytes) override {
        std::vector<uint8_t>& all = content_->bytes;
        const size_t end = static_cast<size_t>(offset) + bytes.size();
        const size_t growth = end > all.size() ? end - all.size() : 0;
        const uint64_t room = disk_.space().free;
        if (growth > room) bytes = bytes.first(bytes.size() - std::min<size_t>(bytes.size(), growth - room));
        const size_t reach = static_cast<size_t>(offset) + bytes.size();
        if (reach > all.size()) {
            disk_.recorded_ += reach - all.size();
            all.resize(reach);
        }
        std::ranges::copy(bytes, all.begin() + offset);
        content_->size = static_cast<int64_t>(all.size());
        return growth > room ? ENOSPC : 0;
    }
    int sync() override {
        content_->synced = content_->bytes;
        return 0;
    }

  private:
    SimDisk& disk_;
    std::shared_ptr<SimDisk::Content> content_;
};

int SimDisk::create(const std::string& path, std::shared_ptr<DiskFile>& file) {
    if (files_.contains(path)) return EEXIST;
    if (space().free < 4096) return ENOSPC;
    files_[path] = std::make_shared<Content>();
    file = std::make_shared<SimFile>(*this, files_[path]);
    return 0;
}

int SimDisk::sync_name(const std::string& path) {
    files_.at(path)->named = true;
    removed_.clear();
    return 0;
}

int SimDisk::remove(const std::string& path) {
    const auto found = files_.find(path);
    if (found == files_.end()) return 0;
    recorded_ -= static_cast<uint64_t>(found->second->size);
    if (removed_.size() > 8) removed_.clear();
    removed_.insert(*found);
    files_.erase(found);
    return 0;
}

std::vector<std::string> SimDisk::list() {
    std::vector<std::string> paths;
    for (const auto& [path, content] : files_) paths.push_back(path);
    return paths;
}

int64_t SimDisk::size(const std::string& path) {
    const auto found = files_.find(path);
    return found != files_.end() ? found->second->size : -1;
}

FileContents SimDisk::contents(const std::string& path) {
    const auto found = files_.find(path);
    if (found == files_.end()) return {};
    const Content& content = *found->second;
    if (content.whole) return content.contents;
    std::ofstream(scratch_, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.bytes.data()), static_cast<long>(content.bytes.size()));
    return read_contents(scratch_, false);
}

std::string SimDisk::digest(const std::string& path, const std::atomic<bool>*) {
    const auto found = files_.find(path);
    if (found == files_.end()) return "";
    Content& content = *found->second;
    if (content.synced.size() != content.bytes.size()) return path;  // may be cut yet
    if (!content.whole) content.contents = contents(path);
    content.whole = true;
    content.bytes = {};
    content.synced = {};
    return path;
}

void SimDisk::cut_power(std::mt19937& random) {
    files_.merge(removed_);
    removed_.clear();
    std::erase_if(files_, [&](const auto& file) { return !file.second->named && random() % 2 == 0; });
    recorded_ = 0;
    for (auto& [path, content] : files_) {
        if (!content->whole) {
            const size_t after = content->bytes.size() - content->synced.size();
            std::vector<uint8_t> left = content->synced;
            const size_t kept = after > 0 ? random() % (after + 1) : 0;
            left.insert(left.end(), content->bytes.begin() + static_cast<long>(left.size()),
                        content->bytes.begin() + static_cast<long>(left.size() + kept));
            if (random() % 4 == 0)
                left.resize(left.size() + after - kept);  // the length was there, the bytes not
            content->bytes = content->synced = std::move(left);
            content->size = static_cast<int64_t>(content->bytes.size());
        }
        recorded_ += static_cast<uint64_t>(content->size);
    }
}

}  // namespace lenswire::recorder
