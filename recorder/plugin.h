// The loaded library: its functions in one table, found by name when it is loaded.
#pragma once

#include <string>

#include "lenswire/lenswire.h"

namespace lenswire::recorder {

// Every function and every datum that the recorder uses.
#define LENSWIRE_PLUGIN_SYMBOLS(X) \
    X(PC_InitCtx)                  \
    X(PC_UnInitCtx)                \
    X(PC_CreateNew)                \
    X(PC_Delete)                   \
    X(PC_Login)                    \
    X(PC_SendHeartbeat)            \
    X(PC_GetStream)                \
    X(arrayfd)

class Plugin {
  public:
    // Loads the library. Throws a camera Failure, one line, when it or one of its functions is not there.
    explicit Plugin(const std::string& path);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    // ../lib/liblenswire.so beside the folder of the running program.
    static std::string default_path();

#define LENSWIRE_PLUGIN_MEMBER(name) decltype(&::name) name = nullptr;
    LENSWIRE_PLUGIN_SYMBOLS(LENSWIRE_PLUGIN_MEMBER)
#undef LENSWIRE_PLUGIN_MEMBER

  private:
    void* find(const char* name) const;

    std::string path_;
    void* handle_ = nullptr;
};

// The library's context: started here, stopped by the scope. Nothing of the host that the library knows may
// go before it.
class PluginContext {
  public:
    explicit PluginContext(Plugin& plugin);  // throws when the context cannot be started
    ~PluginContext();
    PluginContext(const PluginContext&) = delete;
    PluginContext& operator=(const PluginContext&) = delete;

  private:
    Plugin& plugin_;
};

}  // namespace lenswire::recorder
