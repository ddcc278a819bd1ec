#include "check/report.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "check/thread.h"

namespace lenswire::check {

namespace {

constexpr int kSlowMs = 50;

struct RuleText {
    const char* name;
    const char* sentence;
};
constexpr RuleText kTexts[] = {
    {},
#define LENSWIRE_RULE(number, constant, name, sentence) {name, sentence},
#include "check/rule_table.inc"
#undef LENSWIRE_RULE
};
static_assert(sizeof kTexts / sizeof *kTexts == kRules, "rules are numbered without holes, from 1 on");

constexpr const char* kServiceNames[] = {
#define LENSWIRE_CHECK_NAME(name) #name,
    LENSWIRE_HOST_SERVICES(LENSWIRE_CHECK_NAME)
#undef LENSWIRE_CHECK_NAME
};

struct Settings {
    int descriptor = STDERR_FILENO;
    bool ends_process = false;
    int slow_ms = kSlowMs;
};
Settings g_settings;
std::atomic<bool> g_reported[kRules][static_cast<int>(Service::kCount)];

// The environment is read once, when the library is loaded. A program with more rights than its user keeps to
// the defaults.
[[gnu::constructor]] void read_settings() {
    const char* file = secure_getenv("LENSWIRE_CHECK_FILE");
    if (file != nullptr && *file != '\0') {
        const int descriptor = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        if (descriptor >= 0) g_settings.descriptor = descriptor;
    }
    const char* ends = secure_getenv("LENSWIRE_CHECK_ABORT");
    g_settings.ends_process = ends != nullptr && *ends != '\0' && *ends != '0';
    const char* slow = secure_getenv("LENSWIRE_CHECK_SLOW_MS");
    if (slow != nullptr && *slow != '\0') g_settings.slow_ms = std::atoi(slow);
}

[[gnu::destructor]] void close_file() {
    if (g_settings.descriptor != STDERR_FILENO) close(g_settings.descriptor);
}

}  // namespace

int slow_ms() {
    return g_settings.slow_ms;
}

void report(Rule rule, Service service, const char* format, ...) {
    va_list values;
    va_start(values, format);
    report_values(rule, service, format, values);
    va_end(values);
}

void report_values(Rule rule, Service service, const char* format, va_list values) {
    const auto index = static_cast<int>(service);
    if (g_reported[rule][index].exchange(true)) return;
    char text[256];
    std::vsnprintf(text, sizeof text, format, values);
    char line[640];
    const int length =
        std::snprintf(line, sizeof line, "lenswire-check: LW-%02d %s: %s: %s; %s [thread %ld, %s]\n", rule,
                      kTexts[rule].name, kServiceNames[index], text, kTexts[rule].sentence,
                      static_cast<long>(syscall(SYS_gettid)), role_name());
    // Nobody is left to be told when this fails.
    if (write(g_settings.descriptor, line, static_cast<size_t>(length)) < 0) return;
    if (g_settings.ends_process && rule != kServiceSlow) std::abort();
}

}  // namespace lenswire::check
