// The end of a recording, for people and for programs.
#pragma once

#include <string>
#include <vector>

#include "recorder/session/recording_session.h"

namespace lenswire::recorder {

std::string recording_summary_table(const std::vector<StreamStatus>& streams);
std::string recording_summary_json(const std::vector<StreamStatus>& streams);

}  // namespace lenswire::recorder
