#include "camera/device/clock_model.h"

#include <chrono>

#include "lenswire/protocol.h"

namespace lenswire::camera {
namespace {

using namespace std::chrono;

// A record with no date in it stands still.
bool has_date(const Bytes& record) {
    const uint16_t the_year = get_u16(record.data());
    return the_year >= 1970 && the_year < 10'000 && record[2] >= 1 && record[2] <= 12 && record[3] >= 1 &&
           record[3] <= 31;
}

sys_seconds time_of(const Bytes& record) {
    const year_month_day month_start(year(get_u16(record.data())), month(record[2]), day(1));
    // Days are counted on, so the 31st of a shorter month is the first of the next.
    return sys_days(month_start) + days(record[3]) - days(1) + hours(record[4]) + minutes(record[5]) +
           seconds(record[6]);
}

void put_time(Bytes& record, sys_seconds time) {
    const auto date = floor<days>(time);
    const year_month_day calendar(date);
    const hh_mm_ss clock(time - date);
    put_u16(record.data(), static_cast<uint16_t>(static_cast<int>(calendar.year())));
    record[2] = static_cast<uint8_t>(static_cast<unsigned>(calendar.month()));
    record[3] = static_cast<uint8_t>(static_cast<unsigned>(calendar.day()));
    record[4] = static_cast<uint8_t>(clock.hours().count());
    record[5] = static_cast<uint8_t>(clock.minutes().count());
    record[6] = static_cast<uint8_t>(clock.seconds().count());
}

}  // namespace

ClockModel::ClockModel(int64_t now_us) : as_set_(LENSWIRE_TIME_SIZE), set_at_us_(now_us) {
    put_time(as_set_, sys_seconds(floor<seconds>(microseconds(now_us))));
    as_set_[8] = 24;  // the middle of the half-hour zones: GMT
    put_text(std::span(as_set_).subspan(12, 14), "time.nist.gov");
}

void ClockModel::set(const Bytes& record, int64_t now_us) {
    as_set_ = record;
    set_at_us_ = now_us;
}

Bytes ClockModel::record(int64_t now_us) const {
    Bytes now = as_set_;
    if (!has_date(now)) return now;
    put_time(now, time_of(as_set_) + floor<seconds>(microseconds(now_us - set_at_us_)));
    return now;
}

}  // namespace lenswire::camera
