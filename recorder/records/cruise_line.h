// A cruise line as the user writes and sees it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "lenswire/cruise.h"

namespace lenswire::recorder {

// Points as PRESET[:TIME[:SPEED]], in the order of the tour. Throws a bad-input Failure.
CruiseLine parse_cruise_line(int line, const std::vector<std::string>& points, bool enable);

std::string cruise_text(const CruiseLine& line);
nlohmann::ordered_json cruise_json(const CruiseLine& line);

}  // namespace lenswire::recorder
