// Runs a function at the end of its scope: for what is taken without a type of its own.
#pragma once

namespace lenswire {

template <typename F>
class ScopeExit {
  public:
    explicit ScopeExit(F f) : f_(f) {}
    ~ScopeExit() { f_(); }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

  private:
    F f_;
};

}  // namespace lenswire
