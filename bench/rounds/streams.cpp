// Many streams at once: what the receiving side spends, how much it can take, how late frames are.
#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/cameras/sender.h"
#include "bench/receivers/receiver.h"
#include "bench/rounds/round.h"
#include "bench/support/measure.h"

namespace lenswire::bench {

namespace {

using MakeReceiver = std::unique_ptr<Receiver> (*)(const ReceiverOptions&);

const std::map<std::string, MakeReceiver> kReceivers = {
    {"plugin", make_plugin_receiver},     {"bare", make_bare_loop},
    {"gather", make_gathering_loop},      {"copy", make_copying_loop},
    {"avformat", make_avformat_receiver},
};
const std::map<std::string, Pacing> kPacings = {
    {"whole", Pacing::kWhole}, {"spread", Pacing::kSpread}, {"unpaced", Pacing::kUnpaced}};

struct Options {
    std::string receiver = "plugin";
    std::string pacing = "whole";
    uint32_t streams = 64;
    int64_t warm_up_ms = 2000;
    int64_t measure_ms = 4000;
};

double seconds(int64_t ns) {
    return static_cast<double>(ns) * 1e-9;
}

// What has been counted at one moment.
struct Count {
    explicit Count(const Receiver& receiver) : at(now_ns()), bytes(receiver.bytes()) {
        for (const Role& role : receiver.receiving()) add(role);
        for (const Role& role : receiver.consuming()) add(role);
    }
    void add(const Role& role) {
        cpu[role.name] += thread_cpu_ns(role.thread);
        sleeps[role.name] += thread_sleeps(role.thread);
    }

    int64_t at;
    uint64_t bytes;
    std::map<std::string, int64_t> cpu;
    std::map<std::string, int64_t> sleeps;
};

Json compare(const Count& before, const Count& after, const Receiver& receiver) {
    const double elapsed = seconds(after.at - before.at);
    const double gigabytes = static_cast<double>(after.bytes - before.bytes) * 1e-9;
    Json threads;
    for (const auto& [name, cpu] : after.cpu) {
        threads[name] = {
            {"cpu_s", seconds(cpu - before.cpu.at(name))},
            {"sleeps_per_s", static_cast<double>(after.sleeps.at(name) - before.sleeps.at(name)) / elapsed}};
    }
    double receiving = 0;
    std::vector<std::string> counted;
    for (const Role& role : receiver.receiving()) {
        if (std::find(counted.begin(), counted.end(), role.name) != counted.end()) continue;
        receiving += threads[role.name]["cpu_s"].get<double>();
        counted.push_back(role.name);
    }
    return {{"seconds", elapsed},
            {"gigabytes", gigabytes},
            {"cpu_s", receiving},
            {"cpu_s_per_gb", receiving / gigabytes},
            {"gb_per_s", gigabytes / elapsed},
            {"threads", threads}};
}

Json spread_of(const std::vector<int64_t>& delays) {
    const auto us = [&](double share) { return static_cast<double>(percentile(delays, share)) * 1e-3; };
    return {{"frames", delays.size()}, {"median", us(0.5)}, {"p99", us(0.99)}, {"max", us(1)}};
}

// How long after their last byte the pictures of the measured time were delivered, and how long after the
// last of the bytes beyond it that the receiver has to see.
struct Delays {
    Delays(const Receiver& receiver, const Sender& sender, uint32_t streams, int64_t from, int64_t to) {
        for (uint32_t stream = 0; stream < streams; ++stream) {
            const auto sent = sender.sent_at(stream);
            const auto complete = sender.completed_at(stream);
            const size_t frames = std::min<size_t>(sender.completed(stream), complete.size());
            for (uint32_t frame = 0; frame < frames; ++frame) {
                const int64_t delivered = receiver.delivered_at(stream, frame);
                if (!is_video(frame) || delivered == 0) continue;
                if (complete[frame] < from || complete[frame] >= to) continue;
                after_last_byte.push_back(delivered - sent[frame]);
                after_bytes_beyond.push_back(delivered - complete[frame]);
            }
        }
    }

    std::vector<int64_t> after_last_byte, after_bytes_beyond;
};

// Waits until nothing more is to come, and counts what did not.
Json lost_frames(const Receiver& receiver, const Sender& sender, uint32_t streams) {
    const auto missing = [&] {
        int64_t count = 0;
        for (uint32_t stream = 0; stream < streams; ++stream) {
            count += std::max<int64_t>(0, int64_t{sender.completed(stream)} - receiver.delivered(stream));
        }
        return count;
    };
    for (int attempt = 0; attempt < 1000 && missing() > 0; ++attempt) sleep_ms(10);
    int64_t sent = 0;
    for (uint32_t stream = 0; stream < streams; ++stream) sent += sender.completed(stream);
    return {{"sent", sent}, {"lost", missing()}, {"wrong", receiver.wrong_frames()}};
}

Json run(const Options& options) {
    const Pacing pacing = kPacings.at(options.pacing);
    const bool timed = pacing != Pacing::kUnpaced;
    const int64_t longest_ms = options.warm_up_ms + options.measure_ms + 2000;
    const bool rtsp = options.receiver == "avformat";
    // The cameras' timers and segments are elsewhere in a recorder's life, too.
    stay_on_processor(0);
    Sender sender({options.streams, pacing, rtsp ? Protocol::kRtsp : Protocol::kCamera, longest_ms});
    stay_on_processor(1);
    const size_t timed_frames = timed ? sender.completed_at(0).size() : 0;
    const auto receiver = kReceivers.at(options.receiver)({options.streams, timed_frames});
    receiver->start(sender);
    sender.go();

    sleep_ms(options.warm_up_ms);
    const Count before(*receiver);
    sleep_ms(options.measure_ms);
    const Count after(*receiver);
    sender.stop();

    Json result{{"receiver", options.receiver}, {"pacing", options.pacing}, {"streams", options.streams}};
    result.update(compare(before, after, *receiver));
    if (receiver->delivers_frames()) result["frames"] = lost_frames(*receiver, sender, options.streams);
    if (receiver->delivers_frames() && timed) {
        const Delays delays(*receiver, sender, options.streams, before.at, after.at);
        result["delay_us"] = spread_of(delays.after_bytes_beyond);
        result["delay_from_last_byte_us"] = spread_of(delays.after_last_byte);
    }
    result["sender"] = {{"cpu_s", seconds(sender.board().cpu_ns)},
                        {"worst_delay_us", static_cast<double>(sender.board().worst_delay_ns) * 1e-3}};
    return result;
}

}  // namespace

Round add_streams(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--receiver", options->receiver, "who receives")
        ->check(CLI::IsMember({"plugin", "bare", "gather", "copy", "avformat"}));
    app.add_option("--pacing", options->pacing, "how the frames come")
        ->check(CLI::IsMember({"whole", "spread", "unpaced"}));
    app.add_option("--streams", options->streams)->check(CLI::Range(1, 192));
    app.add_option("--warm-up-ms", options->warm_up_ms)->check(CLI::NonNegativeNumber);
    app.add_option("--measure-ms", options->measure_ms)->check(CLI::PositiveNumber);
    return [options] { return run(*options); };
}

}  // namespace lenswire::bench
