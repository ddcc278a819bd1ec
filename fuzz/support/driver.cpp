// What every target is linked with: the entry that libFuzzer calls, and where there is no libFuzzer a main
// that replays files and folders of inputs.
#include <cstdio>
#include <cstdlib>

#include "fuzz/support/host.h"
#include "fuzz/support/target.h"

namespace lenswire::fuzz {

std::vector<char> Input::line() {
    const auto end = std::find(rest_.begin(), rest_.end(), '\n');
    const auto text = take(static_cast<size_t>(end - rest_.begin()));
    take(1);
    std::vector<char> line(text.begin(), text.end());
    line.push_back('\0');
    return line;
}

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "must hold, and does not: %s\n", what);
    std::fflush(stderr);
    std::abort();
}

}  // namespace lenswire::fuzz

namespace {

// The library's log lines are many: they cost no system call each.
[[maybe_unused]] const int g_buffered = setvbuf(stderr, nullptr, _IOFBF, 1 << 16);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lenswire::fuzz::run(lenswire::fuzz::Input({data, size}));
    lenswire::fuzz::require(lenswire::fuzz::live_allocations() == 0, "memory of the host is given back");
    return 0;
}

#ifdef LENSWIRE_REPLAYS

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<uint8_t> input{std::istreambuf_iterator<char>(file), {}};
    // Said before it is run, so that a crash names its input.
    std::fprintf(stderr, "%s\n", path.c_str());
    std::fflush(stderr);
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

// Options of libFuzzer, which begin with a dash, are passed over.
int main(int count, char** arguments) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
    int inputs = 0;
    for (int i = 1; i < count; ++i) {
        if (arguments[i][0] == '-') continue;
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            replay(entry.path());
            ++inputs;
        }
    }
    std::fprintf(stderr, "Replayed %d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}

#endif
