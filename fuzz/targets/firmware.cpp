// What a camera says of itself against a firmware file: its name, its header, its tag.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "fuzz/support/target.h"
#include "lenswire/upgrade.h"
#include "privateConfigure/upgrade/upgrade_file.h"

namespace lenswire::fuzz {

namespace {

// The path of a file in memory that holds these bytes. One file a process.
const char* file_of(std::span<const uint8_t> bytes) {
    static const int file = memfd_create("firmware", MFD_CLOEXEC);
    static char path[LENSWIRE_UPGRADE_PATH_SIZE];
    require(ftruncate(file, 0) == 0 && pwrite(file, bytes.data(), bytes.size(), 0) >= 0, "a file");
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
    return path;
}

void check_file(IpcDeviceInfo info, std::span<const uint8_t> bytes) {
    char path[LENSWIRE_UPGRADE_PATH_SIZE] = {};
    std::strcpy(path, file_of(bytes));
    CompareUpgradeFile(&info, path);
    CheckUpgradFile(&info, path);
    CheckUpgradFile2(info.ndevType, path);
    CheckUpgradFile3(&info, path);
}

}  // namespace

// The first byte says whether a file is looked at, too, which takes much longer. Then the path, the camera,
// and the file.
void run(Input input) {
    using namespace upgrade;
    const bool looks_at_file = input.number<uint8_t>() % 16 == 1;
    std::vector<char> path = input.line();
    IpcDeviceInfo info{};
    info.ndevType = input.number<uint8_t>();
    const auto texts = input.take(sizeof info - offsetof(IpcDeviceInfo, szFirmwareName));
    std::memcpy(info.szFirmwareName, texts.data(), texts.size());

    check_of(info.ndevType);
    const std::string_view name = text_of(info.szFirmwareName);
    compare_names(name, path_text(path.data()));
    compare_tokens(name, path_text(path.data()));
    path.resize(LENSWIRE_UPGRADE_PATH_SIZE);  // as a host's field, which need not end
    QM_VT_NewUpgradeFileCheck(info.szFirmwareName, path.data());

    if (looks_at_file) return check_file(info, input.rest());
    std::vector<char> start(kTagFileSize);
    std::copy_n(input.rest().begin(), std::min(input.rest().size(), kTagFileSize), start.begin());
    has_tag(std::span<const char, kTagFileSize>(start));
    judge_header(info, input.record<UpgradeFileHeader>(), input.rest().size());
}

}  // namespace lenswire::fuzz
