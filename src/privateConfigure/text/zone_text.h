// A zone text such as GMT+08:00.
#pragma once

namespace lenswire {

struct ZoneText {
    bool is_gmt;  // "GMT" stands in it; without it nothing else is looked at
    int sign;     // 1 for the first '+', else -1 for the first '-', else 0
    int hours;    // -1 with a sign and no number behind it
    int minutes;
};

ZoneText parse_zone(const char* text);

}  // namespace lenswire
