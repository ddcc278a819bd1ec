// One call into the host, with what is checked of every service.
#pragma once

#include <signal.h>

#include <cerrno>
#include <type_traits>

#include "check/report.h"

namespace lenswire::check {

// How a host's services go: an object for the length of the checking function, and one call through it.
// Nothing of the check is locked meanwhile.
//
//     Call call(Service::ring_used_size);
//     const uint32_t used = call.into(real_ring_used_size, ring);
class Call {
  public:
    explicit Call(Service service) : service_(service) {}
    // The library looks at errno after some services.
    ~Call() { errno = error_; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    template <typename Function, typename... Arguments>
    auto into(Function* function, Arguments... arguments) {
        enter();
        if constexpr (std::is_void_v<decltype(function(arguments...))>) {
            function(arguments...);
            leave();
        } else {
            auto result = function(arguments...);
            leave();
            return result;
        }
    }

    // Reports a breach of the rule when the condition does not hold; returns the condition.
    bool expect(bool holds, Rule rule, const char* format, ...) const __attribute__((format(printf, 4, 5)));

  private:
    void enter();
    void leave();

    Service service_;
    int error_ = errno;
    int64_t start_us_ = 0;
    sigset_t mask_;
};

}  // namespace lenswire::check
