#include "recorder/cli/recording_view.h"

#include <algorithm>
#include <cstdarg>
#include <nlohmann/json.hpp>

namespace lenswire::recorder {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kReportInterval = std::chrono::seconds(5);
constexpr auto kRateInterval = std::chrono::seconds(2);

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* pattern, ...) {
    char text[512];
    std::va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return text;
}

std::string dated(const std::string& line) {
    return utc_text(SystemClock().wall()) + " " + line;
}

std::string size_text(const RecordingReport& report) {
    return report.width > 0 ? std::to_string(report.width) + "x" + std::to_string(report.height) : "-";
}

std::string codec_text(const RecordingReport& report) {
    return report.codec.empty() ? "-" : report.codec;
}

std::string table_row(const StreamStatus& s, const RateMeter& rate) {
    return format("%-26s %-12s %-5s %-10s %5.1f %7.2f %9llu %5llu %8u %6llu", s.title.c_str(),
                  state_name(s.view.state), codec_text(s.recording).c_str(), size_text(s.recording).c_str(),
                  rate.pictures_per_second(), rate.megabits_per_second(),
                  static_cast<unsigned long long>(s.recording.frames),
                  static_cast<unsigned long long>(s.lost()), s.view.restarts,
                  static_cast<unsigned long long>(s.motion.motions));
}

std::string table_head() {
    return format("%-26s %-12s %-5s %-10s %5s %7s %9s %5s %8s %6s", "camera", "state", "codec", "size", "fps",
                  "Mbit/s", "frames", "lost", "restarts", "motion");
}

std::string report_line(const StreamStatus& s, const RateMeter& rate) {
    return format("%s %s %s %s %.1f fps %.2f Mbit/s %llu frames %u restarts", s.title.c_str(),
                  state_name(s.view.state), codec_text(s.recording).c_str(), size_text(s.recording).c_str(),
                  rate.pictures_per_second(), rate.megabits_per_second(),
                  static_cast<unsigned long long>(s.recording.frames), s.view.restarts);
}

std::string object(const char* event, const nlohmann::ordered_json& more) {
    nlohmann::ordered_json json = {{"event", event}, {"at", utc_text(SystemClock().wall())}};
    json.update(more);
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string report_object(const StreamStatus& s, const RateMeter& rate) {
    return object("report", {{"stream", s.title},
                             {"state", state_name(s.view.state)},
                             {"codec", s.recording.codec},
                             {"size", size_text(s.recording)},
                             {"pictures_per_second", rate.pictures_per_second()},
                             {"megabits_per_second", rate.megabits_per_second()},
                             {"frames", s.recording.frames},
                             {"lost", s.lost()},
                             {"restarts", s.view.restarts}});
}

}  // namespace

void RateMeter::update(uint64_t pictures, uint64_t bytes, Clock::time_point now) {
    const std::chrono::duration<double> elapsed = now - since_;
    if (started_ && elapsed < kRateInterval) return;
    if (started_) {
        pictures_per_second_ = static_cast<double>(pictures - pictures_) / elapsed.count();
        megabits_per_second_ = static_cast<double>(bytes - bytes_) * 8 / 1e6 / elapsed.count();
    }
    started_ = true;
    since_ = now;
    pictures_ = pictures;
    bytes_ = bytes;
}

void RecordingView::show(const std::vector<StreamStatus>& streams) {
    for (const StreamStatus& s : streams) {
        shown(s).rate.update(s.recording.pictures, s.recording.bytes, Clock::now());
    }
    if (kind_ == Kind::kTable) draw_table(streams);
    if (kind_ == Kind::kLines || kind_ == Kind::kJson) show_lines(streams);
}

void RecordingView::event(const std::string& line) {
    if (kind_ == Kind::kSilent) return;
    if (kind_ == Kind::kJson) return console_.line(object("note", {{"text", line}}));
    erase_table();
    console_.line(dated(line));
}

void RecordingView::error(const std::string& line) {
    erase_table();
    console_.error_line(dated(line));
}

void RecordingView::erase_table() {
    if (drawn_lines_ > 0) console_.print(format("\x1b[%dA\x1b[J", drawn_lines_));
    drawn_lines_ = 0;
}

void RecordingView::draw_table(const std::vector<StreamStatus>& streams) {
    // The table must fit: what has scrolled off the screen cannot be drawn again.
    const size_t room = static_cast<size_t>(std::max(console_.terminal_lines() - 3, 1));
    const size_t rows = streams.size() <= room ? streams.size() : room - 1;
    std::string text = table_head() + "\n";
    for (size_t i = 0; i < rows; ++i) text += table_row(streams[i], shown(streams[i]).rate) + "\n";
    if (rows < streams.size()) text += format("     and %zu more\n", streams.size() - rows);
    erase_table();
    console_.print(text);
    drawn_lines_ = static_cast<int>(std::ranges::count(text, '\n'));
}

void RecordingView::show_lines(const std::vector<StreamStatus>& streams) {
    const auto now = Clock::now();
    if (next_report_ == Clock::time_point{}) next_report_ = now + kReportInterval;
    const bool report = now >= next_report_;
    if (report) next_report_ = now + kReportInterval;
    for (const StreamStatus& s : streams) {
        Shown& last = shown(s);
        const bool changed = !last.any || last.state != s.view.state;
        last.any = true;
        last.state = s.view.state;
        const bool json = kind_ == Kind::kJson;
        if (report) {
            console_.line(json ? report_object(s, last.rate) : dated(report_line(s, last.rate)));
        } else if (changed) {
            const char* state = state_name(s.view.state);
            console_.line(json ? object("state", {{"stream", s.title}, {"state", state}})
                               : dated(s.title + " " + state));
        }
    }
}

}  // namespace lenswire::recorder
