#include "privateConfigure/text/zone_text.h"

#include <cstring>

#include "privateConfigure/text/scan.h"

namespace lenswire {

ZoneText parse_zone(const char* text) {
    ZoneText zone{.is_gmt = std::strstr(text, "GMT") != nullptr, .sign = 0, .hours = 0, .minutes = 0};
    if (!zone.is_gmt) return zone;
    // A host's text has one sign. Of a text with both the '+' counts, wherever it stands.
    const char* sign = std::strchr(text, '+');
    if (sign == nullptr) sign = std::strchr(text, '-');
    if (sign == nullptr) return zone;
    zone.sign = *sign == '+' ? 1 : -1;
    zone.hours = -1;
    Scanner(sign + 1).integer(zone.hours).literal(':').integer(zone.minutes);
    return zone;
}

}  // namespace lenswire
