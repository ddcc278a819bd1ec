// The loaded library: its functions in one table, found by name when it is loaded.
#pragma once

#include <string>

#include "lenswire/lenswire.h"

namespace lenswire::recorder {

// Every function and every datum that the recorder uses.
#define LENSWIRE_PLUGIN_SYMBOLS(X)               \
    X(PC_InitCtx)                                \
    X(PC_UnInitCtx)                              \
    X(PC_CreateNew)                              \
    X(PC_Delete)                                 \
    X(PC_Login)                                  \
    X(PC_SendHeartbeat)                          \
    X(PC_GetStream)                              \
    X(arrayfd)                                   \
    X(Prv_PacketMsg)                             \
    X(Prv_Send_Cmd)                              \
    X(Prv_GetCond_Property)                      \
    X(prv_destroy_msg)                           \
    X(cmd_packet)                                \
    X(Prv_GetIPCImageProperty)                   \
    X(Prv_SetIPCImageProperty)                   \
    X(Prv_GetIPCNetworkProperty)                 \
    X(Prv_GetIPCOSD)                             \
    X(Prv_SetIPCOSD)                             \
    X(Prv_GetWifiSignal)                         \
    X(Prv_GetIPCMtionDetetionConfigure)          \
    X(Prv_SetIPCMtionDetetionConfigure)          \
    X(Prv_CloseMD)                               \
    X(prv_set_alarm_property_ex)                 \
    X(Prv_GetVideoCover)                         \
    X(Prv_SetVideoCover)                         \
    X(Prv_SetSmartIFrame)                        \
    X(Private_Protocol_GetEncodingScope)         \
    X(Private_Protocol_GetEncodingProperty)      \
    X(Private_Protocol_SetEncodingProperty)      \
    X(Private_Protocol_GetStreamType)            \
    X(Private_Fish_Protocol_GetEncodingProperty) \
    X(Private_Fish_Protocol_SetEncodingProperty) \
    X(Private_Fish_Protocol_EYE_PROPERTY)        \
    X(GetFishType)                               \
    X(Private_PTZ_GET_Property)                  \
    X(Private_PTZ_SET_Property)                  \
    X(Private_SetPtzSpeed)                       \
    X(Private_PtzCmd)                            \
    X(Private_SetPreset)                         \
    X(Private_RecallPreset)                      \
    X(Private_ptzCruiseInit)                     \
    X(Private_ChangeCruiseParamToMemory)         \
    X(Private_PTZ_CRUISE_GET)                    \
    X(Private_GetPtzCruiseAllPreset)             \
    X(Private_SetPtzCruiseAllPreset)             \
    X(Private_GetPtzCruiseChannel)               \
    X(Private_StartPtzCruiseLine)                \
    X(Prv_GetTimeProperty)                       \
    X(Prv_SetIPCTimeDate)                        \
    X(Prv_SetIPCTimeAndDate)                     \
    X(Prv_Get_IPC_PropertyParam)                 \
    X(Private_Protocol_GetPlatFormType)          \
    X(QM_VT_NewUpgradeFileCheck)                 \
    X(CheckUpgradFile)                           \
    X(CheckUpgradFile2)                          \
    X(CheckUpgradFile3)                          \
    X(Get_IPC_upgradeParam)                      \
    X(Prv_ipc_upgrade)                           \
    X(Prv_ipc_upgrade_get_status)

class Plugin {
  public:
    // Loads the library. Throws a camera Failure, one line, when it or one of its functions is not there.
    explicit Plugin(const std::string& path);
    ~Plugin();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    // Where the library is, seen from the running program: as built, or as installed.
    static std::string default_path();

#define LENSWIRE_PLUGIN_MEMBER(name) LENSWIRE_FUNCTION(::name) name = nullptr;
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
