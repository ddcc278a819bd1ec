// The field tables of every record that the program shows or changes.
#pragma once

#include "recorder/records/fields.h"

namespace lenswire::recorder {

extern const Layout kImageLayout;
extern const Layout kNetworkLayout;
extern const Layout kOsdLayout;
extern const Layout kWifiLayout;
extern const Layout kMotionLayout;
extern const Layout kCoverLayout;
extern const Layout kSmartIFrameLayout;
extern const Layout kEncodingLayout;      // the three streams
extern const Layout kFishEncodingLayout;  // the three records
extern const Layout kPtzLayout;
extern const Layout kTimeLayout;
extern const Layout kFishEyeLayout;
extern const Layout kPropertyLayout;
extern const Layout kAlarmLayout;
extern const Layout kDeviceLayout;

}  // namespace lenswire::recorder
