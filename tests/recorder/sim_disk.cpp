#include "sim_disk.h"

#include <algorithm>
#include <bit>
#include <fstream>

namespace lenswire::recorder {
namespace {

constexpr unsigned kReadThoroughly = 64;  // one file of so many

// A number of Matroska's: the leading zeros say how long it is. An identifier keeps the bit that ends them.
uint64_t take_number(std::span<const uint8_t> file, size_t& at, bool identifier) {
    const int length = std::min(std::countl_zero(file[at]) + 1, 8);
    uint64_t value = identifier ? file[at] : file[at] & (0xff >> length);
    for (int i = 1; i < length && at + 1 < file.size(); ++i) value = value << 8 | file[++at];
    ++at;
    return value;
}

// By the structure of a file without sound.
uint64_t count_pictures(std::span<const uint8_t> file) {
    constexpr uint64_t kSegment = 0x18538067, kCluster = 0x1F43B675, kSimpleBlock = 0xA3, kBlockGroup = 0xA0;
    uint64_t count = 0;
    for (size_t at = 0; at < file.size();) {
        const uint64_t element = take_number(file, at, true);
        const uint64_t size = at < file.size() ? take_number(file, at, false) : 0;
        if (element == kSimpleBlock || element == kBlockGroup) ++count;
        if (element != kSegment && element != kCluster) at += size;
    }
    return count;
}

void lose_what_was_not_synced(SimDisk::Content& content, std::mt19937& random) {
    for (auto old = content.written_over.rbegin(); old != content.written_over.rend(); ++old)
        std::ranges::copy(old->second, content.bytes.begin() + static_cast<long>(old->first));
    content.written_over.clear();
    const size_t after = content.bytes.size() - content.synced;
    content.bytes.resize(content.synced + (after > 0 ? random() % (after + 1) : 0));
    if (random() % 4 == 0)
        content.bytes.resize(content.synced + after);  // the length was there, the bytes not
    content.synced = content.bytes.size();
}

}  // namespace

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
            if (all.capacity() < reach) all.reserve(2 * reach);
            all.resize(reach);
        }
        const auto at = static_cast<size_t>(offset);
        if (at < content_->synced)
            content_->written_over.emplace_back(
                at, std::vector(&all[at], all.data() + std::min(reach, content_->synced)));
        std::ranges::copy(bytes, all.begin() + offset);
        return growth > room ? ENOSPC : 0;
    }
    int sync() override {
        content_->sync();
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

int SimDisk::sync(const std::string& path) {
    files_.at(path)->sync();
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
    recorded_ -= static_cast<uint64_t>(found->second->bytes.size());
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
    return found != files_.end() ? std::ssize(found->second->bytes) : -1;
}

FileContents SimDisk::contents(const std::string& path) {
    const auto found = files_.find(path);
    if (found == files_.end()) return {};
    Content& content = *found->second;
    content.looked_at = true;
    std::ofstream(scratch_, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.bytes.data()), static_cast<long>(content.bytes.size()));
    return read_contents(scratch_, false);
}

std::string SimDisk::digest(const std::string& path, const std::atomic<bool>*) {
    const auto found = files_.find(path);
    if (found == files_.end()) return "";
    Content& content = *found->second;
    if (content.synced != content.bytes.size() || content.pictures) return path;  // may be cut yet
    const bool thoroughly = content.looked_at || ++digests_ % kReadThoroughly == 0;
    content.pictures = thoroughly ? contents(path).pictures : count_pictures(content.bytes);
    return path;
}

void SimDisk::cut_power(std::mt19937& random) {
    files_.merge(removed_);
    removed_.clear();
    std::erase_if(files_, [&](const auto& file) { return !file.second->named && random() % 2 == 0; });
    recorded_ = 0;
    for (auto& [path, content] : files_) {
        if (!content->pictures) lose_what_was_not_synced(*content, random);
        recorded_ += content->bytes.size();
    }
}

}  // namespace lenswire::recorder
