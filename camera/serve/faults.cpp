#include "camera/serve/faults.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <span>
#include <string_view>

#include "lenswire/protocol.h"

namespace lenswire::camera {
namespace {

// The parts of a fault's text.
struct FaultText {
    std::string_view name;
    std::optional<int64_t> value;
    std::optional<int64_t> frame;
    std::optional<int64_t> code;
    std::optional<int64_t> times;
};

std::optional<int64_t> parse_number(std::string_view text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex) text.remove_prefix(2);
    int64_t number = 0;
    const auto [end, wrong] = std::from_chars(text.data(), text.data() + text.size(), number, hex ? 16 : 10);
    if (wrong != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

// Cuts "stall=500@25*2" at its marks; nothing when a mark has no number behind it or stands twice.
std::optional<FaultText> take_apart(std::string_view text) {
    constexpr std::string_view kMarks = "=@:*";
    FaultText parts;
    size_t at = std::min(text.find_first_of(kMarks), text.size());
    parts.name = text.substr(0, at);
    while (at < text.size()) {
        std::optional<int64_t>* const fields[] = {&parts.value, &parts.frame, &parts.code, &parts.times};
        std::optional<int64_t>& field = *fields[kMarks.find(text[at])];
        const size_t end = std::min(text.find_first_of(kMarks, at + 1), text.size());
        if (field) return std::nullopt;
        field = parse_number(text.substr(at + 1, end - at - 1));
        if (!field) return std::nullopt;
        at = end;
    }
    return parts;
}

enum class Value { kNone, kOptional, kNeeded };

template <typename AFault>
struct Row {
    std::string_view name;
    Value value;
    int64_t fallback;
    int64_t lowest;
    int64_t highest;
    void (*apply)(AFault&, int64_t);
};

constexpr int64_t kMaxMs = 86'400'000;
constexpr int64_t kMaxLength = 0x7FFFFFFF;

constexpr Row<AnswerFault> kAnswerRows[] = {
    {"refuse-login", Value::kOptional, 1, 1, 0xFFFF,
     [](AnswerFault& fault, int64_t value) {
         fault.code = LENSWIRE_CMD_LOGIN;
         fault.state = static_cast<uint16_t>(value);
     }},
    {"silent", Value::kNone, 0, 0, 0, [](AnswerFault& fault, int64_t) { fault.silent = true; }},
    {"late", Value::kNeeded, 0, 0, kMaxMs, [](AnswerFault& fault, int64_t value) { fault.delay_ms = value; }},
    {"dribble", Value::kOptional, 1, 0, kMaxMs,
     [](AnswerFault& fault, int64_t value) {
         fault.piece = 1;
         fault.piece_gap_ms = value;
     }},
    {"answer-flag", Value::kNeeded, 0, 0, 0xFFFF,
     [](AnswerFault& fault, int64_t value) { fault.flag = static_cast<uint16_t>(value); }},
    {"answer-state", Value::kNeeded, 0, 0, 0xFFFF,
     [](AnswerFault& fault, int64_t value) { fault.state = static_cast<uint16_t>(value); }},
    {"answer-length", Value::kNeeded, 0, -kMaxLength, kMaxLength,
     [](AnswerFault& fault, int64_t value) { fault.length_delta = static_cast<int32_t>(value); }},
    {"garbage", Value::kNeeded, 0, 0, 1 << 20,
     [](AnswerFault& fault, int64_t value) { fault.garbage = static_cast<uint32_t>(value); }},
    {"cut-answer", Value::kNeeded, 0, 0, MAX_CMD_SIZE,
     [](AnswerFault& fault, int64_t value) { fault.cut_at = static_cast<uint32_t>(value); }},
    {"close-answer", Value::kNone, 0, 0, 0, [](AnswerFault& fault, int64_t) { fault.close_after = true; }},
};

constexpr Row<UploadFault> kUploadRows[] = {
    {"upload-fail", Value::kOptional, 1, 1, 0xFFFF,
     [](UploadFault& fault, int64_t value) { fault.state = static_cast<uint16_t>(value); }},
    {"upload-late", Value::kNeeded, 0, 0, kMaxMs,
     [](UploadFault& fault, int64_t value) { fault.late_ms = value; }},
    {"upload-silent", Value::kNone, 0, 0, 0, [](UploadFault& fault, int64_t) { fault.silent = true; }},
    {"upload-close", Value::kNeeded, 0, 0, kMaxLength,
     [](UploadFault& fault, int64_t value) { fault.close_at = static_cast<uint64_t>(value); }},
    {"upload-full", Value::kOptional, 0, 0, kMaxLength,
     [](UploadFault& fault, int64_t value) { fault.full_at = static_cast<uint64_t>(value); }},
    {"upload-slow", Value::kNeeded, 0, 1, kMaxLength,
     [](UploadFault& fault, int64_t value) { fault.bytes_per_second = static_cast<uint32_t>(value); }},
    {"upload-babble", Value::kOptional, 30, 1, 1'000'000,
     [](UploadFault& fault, int64_t value) { fault.babble = static_cast<uint32_t>(value); }},
};

struct StreamRow {
    std::string_view name;
    StreamFaultKind kind;
    Value value;
    int64_t lowest;
    int64_t highest;
};

constexpr StreamRow kStreamRows[] = {
    {"stop", StreamFaultKind::kStop, Value::kNone, 0, 0},
    {"close-mid", StreamFaultKind::kCloseMid, Value::kNone, 0, 0},
    {"close", StreamFaultKind::kClose, Value::kNone, 0, 0},
    {"reset", StreamFaultKind::kReset, Value::kNone, 0, 0},
    {"stall", StreamFaultKind::kStall, Value::kOptional, 0, kMaxMs},
    {"one-byte", StreamFaultKind::kOneByte, Value::kNone, 0, 0},
    {"bad-flag", StreamFaultKind::kBadFlag, Value::kOptional, 0, 0xFFFF},
    {"wrong-length", StreamFaultKind::kWrongLength, Value::kNeeded, -LENSWIRE_PACKET_LENGTH_MAX,
     LENSWIRE_PACKET_LENGTH_MAX},
};

bool value_fits(const FaultText& parts, Value rule, int64_t lowest, int64_t highest) {
    if (!parts.value) return rule != Value::kNeeded;
    return rule != Value::kNone && *parts.value >= lowest && *parts.value <= highest;
}

bool in_range(const std::optional<int64_t>& number, int64_t highest) {
    return !number || (*number >= 0 && *number <= highest);
}

std::optional<Fault> make_answer_fault(const Row<AnswerFault>& row, const FaultText& parts) {
    AnswerFault fault;
    if (!value_fits(parts, row.value, row.lowest, row.highest) || parts.frame ||
        !in_range(parts.code, 0xFFFF)) {
        return std::nullopt;
    }
    row.apply(fault, parts.value.value_or(row.fallback));
    if (parts.code) {
        if (fault.code) return std::nullopt;
        fault.code = static_cast<uint16_t>(*parts.code);
    }
    fault.times = static_cast<uint32_t>(parts.times.value_or(0));
    return fault;
}

std::optional<Fault> make_upload_fault(const Row<UploadFault>& row, const FaultText& parts) {
    if (!value_fits(parts, row.value, row.lowest, row.highest) || parts.frame || parts.code)
        return std::nullopt;
    UploadFault fault;
    row.apply(fault, parts.value.value_or(row.fallback));
    fault.times = static_cast<uint32_t>(parts.times.value_or(0));
    return fault;
}

std::optional<Fault> make_stream_fault(const StreamRow& row, const FaultText& parts) {
    if (!value_fits(parts, row.value, row.lowest, row.highest) || parts.code ||
        !in_range(parts.frame, INT64_MAX)) {
        return std::nullopt;
    }
    StreamFault fault;
    fault.kind = row.kind;
    fault.value = parts.value.value_or(0);
    fault.at_frame = static_cast<uint64_t>(parts.frame.value_or(0));
    fault.times = static_cast<uint32_t>(parts.times.value_or(1));
    return fault;
}

struct FaultHelp {
    std::string_view name;
    const char* example;
    const char* text;
};

constexpr FaultHelp kAnswerHelp[] = {
    {"refuse-login", "refuse-login*2", "refuses logins with a state, 1; here the first two"},
    {"silent", "silent:0x1004", "does not answer; here only the request for the image settings"},
    {"late", "late=1500", "answers so many ms later; other answers may overtake it"},
    {"dribble", "dribble=5", "answers byte by byte with so many ms between, 1"},
    {"answer-flag", "answer-flag=7", "answers with another flag in the header"},
    {"answer-state", "answer-state=1:0x1023", "answers with a state, of which 0 alone is success"},
    {"answer-length", "answer-length=-4", "announces so many bytes more than follow, or fewer"},
    {"garbage", "garbage=100", "sends so many bytes of rubbish behind the answer"},
    {"cut-answer", "cut-answer=20", "sends only the first so many bytes of the answer"},
    {"close-answer", "close-answer:0x1000", "closes the connection behind the answer"},
};
constexpr FaultHelp kStreamHelp[] = {
    {"stop", "stop@50", "stops in the middle of a packet and keeps the connection"},
    {"close-mid", "close-mid@50", "closes in the middle of a packet"},
    {"close", "close@50*3", "closes before a packet; here on the first three connections"},
    {"reset", "reset@50", "the same with a reset"},
    {"stall", "stall=2000@50", "pauses for so many ms before a packet, without a value for ever"},
    {"one-byte", "one-byte@50", "sends in writes of one byte from there on"},
    {"bad-flag", "bad-flag=9@50", "another flag in the packet's header, 0"},
    {"wrong-length", "wrong-length=100@50", "announces so many bytes more than follow, or fewer"},
};
constexpr FaultHelp kUploadHelp[] = {
    {"upload-fail", "upload-fail=3", "answers a whole file with a state, 1"},
    {"upload-late", "upload-late=3000", "answers so many ms later"},
    {"upload-silent", "upload-silent", "does not answer"},
    {"upload-close", "upload-close=70000", "closes when so many bytes have come"},
    {"upload-full", "upload-full=70000", "says that there is no room when more bytes have come, 0"},
    {"upload-slow", "upload-slow=100000", "reads no faster than so many bytes a second"},
    {"upload-babble", "upload-babble=10", "sends so many messages that are no answer, 30"},
};

// A fault that nobody explains does not compile.
template <typename Rows, typename Helps>
constexpr bool all_explained(const Rows& rows, const Helps& helps) {
    if (std::size(rows) != std::size(helps)) return false;
    for (size_t i = 0; i < std::size(rows); ++i) {
        if (rows[i].name != helps[i].name) return false;
    }
    return true;
}
static_assert(all_explained(kAnswerRows, kAnswerHelp));
static_assert(all_explained(kStreamRows, kStreamHelp));
static_assert(all_explained(kUploadRows, kUploadHelp));

std::string section(const char* title, std::span<const FaultHelp> rows) {
    std::string text = title;
    for (const FaultHelp& row : rows) {
        char line[160];
        std::snprintf(line, sizeof line, "  %-22s %s\n", row.example, row.text);
        text += line;
    }
    return text;
}

}  // namespace

std::string faults_help() {
    return "Faults, [CAMERA/]NAME[=VALUE][@FRAME][:CODE][*TIMES], each shown by an example. Cameras count "
           "from 1;\n"
           "without one it is all of them. Where a value may be left out, the text ends with the one "
           "taken.\n" +
           section("Of answers, of the command with that CODE or of every one, TIMES times or always:\n",
                   kAnswerHelp) +
           section(
               "Of streams, at that video FRAME of a connection, counted from 0, on TIMES connections, 1,\n"
               "0 for all:\n",
               kStreamHelp) +
           section("Of firmware uploads, of TIMES uploads or of all:\n", kUploadHelp);
}

std::optional<Fault> parse_fault(const std::string& text, std::string* error) {
    const auto parts = take_apart(text);
    if (!parts || !in_range(parts->times, 0xFFFFFFFF)) {
        *error = text + ": not a fault and its numbers";
        return std::nullopt;
    }
    bool known = false;
    std::optional<Fault> fault;
    const auto look_in = [&](const auto& rows, auto make) {
        for (const auto& row : rows) {
            if (row.name != parts->name) continue;
            known = true;
            fault = make(row, *parts);
        }
    };
    look_in(kAnswerRows, make_answer_fault);
    look_in(kStreamRows, make_stream_fault);
    look_in(kUploadRows, make_upload_fault);
    if (fault) std::visit([&text](auto& each) { each.name = text; }, *fault);
    if (!fault) *error = text + (known ? ": not a value that this fault takes" : ": no such fault");
    return fault;
}

UploadFault merge(const std::vector<UploadFault>& faults) {
    UploadFault all;
    for (const UploadFault& each : faults) {
        if (each.state) all.state = each.state;
        if (each.close_at) all.close_at = each.close_at;
        if (each.full_at) all.full_at = each.full_at;
        all.late_ms = std::max(all.late_ms, each.late_ms);
        all.silent = all.silent || each.silent;
        all.bytes_per_second = std::max(all.bytes_per_second, each.bytes_per_second);
        all.babble = std::max(all.babble, each.babble);
        all.name += (all.name.empty() || each.name.empty() ? "" : " ") + each.name;
    }
    return all;
}

Bytes spoil(Command answer, const AnswerFault& fault) {
    answer.flag = fault.flag.value_or(answer.flag);
    answer.state = fault.state.value_or(answer.state);
    if (fault.length_delta != 0) {
        answer.buffer_size =
            static_cast<uint32_t>(answer.payload.size()) + static_cast<uint32_t>(fault.length_delta);
        answer.buffer_num = 1;
    }
    Bytes bytes = to_bytes(answer);
    bytes.insert(bytes.end(), fault.garbage, 0xA5);
    if (fault.cut_at) bytes.resize(std::min<size_t>(bytes.size(), *fault.cut_at));
    return bytes;
}

}  // namespace lenswire::camera
