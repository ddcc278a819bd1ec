#include "recorder/session/plugin.h"

#include <dlfcn.h>

#include <filesystem>

#include "recorder/support/failure.h"

namespace lenswire::recorder {

Plugin::Plugin(const std::string& path) : path_(path) {
    // All of it now: a service that this program does not export shows here and not in the middle of a
    // recording.
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) throw local_failure(std::string("the library cannot be loaded: ") + dlerror());
    try {
#define LENSWIRE_PLUGIN_FIND(name) name = reinterpret_cast<decltype(name)>(find(#name));
        LENSWIRE_PLUGIN_SYMBOLS(LENSWIRE_PLUGIN_FIND)
#undef LENSWIRE_PLUGIN_FIND
    } catch (const Failure&) {
        dlclose(handle_);
        throw;
    }
}

Plugin::~Plugin() {
    dlclose(handle_);
}

void* Plugin::find(const char* name) const {
    void* symbol = dlsym(handle_, name);
    if (symbol == nullptr) throw local_failure(path_ + ": the library has no " + name);
    return symbol;
}

std::string Plugin::default_path() {
    std::error_code error;
    const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    const auto built = folder / "../lib/liblenswire.so";
    const auto installed = folder / LENSWIRE_PLUGIN_DIR / "liblenswire.so";
    return (std::filesystem::exists(built, error) ? built : installed).lexically_normal().string();
}

PluginContext::PluginContext(Plugin& plugin) : plugin_(plugin) {
    if (plugin_.PC_InitCtx() != 0) throw local_failure("the library's context cannot be started");
}

PluginContext::~PluginContext() {
    plugin_.PC_UnInitCtx();
}

}  // namespace lenswire::recorder
