// The points at which what the library calls can fail: every host service and every function of libc that it
// imports and that can. One call of one of them, the n-th that the library makes, is made to fail.
//
// The library's time runs faster than the system's, so that waits for an answer that never comes are short.
#pragma once

#include <atomic>
#include <string>

namespace lenswire::test {

class Point {
  public:
    Point(const char* name, int error, int other_error);
    static Point* first();
    static Point* find(const std::string& name);
    Point* next() const { return next_; }
    const char* name() const { return name_; }
    int errors() const { return other_error_ != 0 ? 2 : 1; }

    int calls() const { return calls_; }
    // From now on the n-th call fails, with the first or the second error; once.
    void fails_at(int number, int error_index);
    static void nothing_fails();
    static bool has_failed();

    // The call's part: counts it, and sets errno when it is to fail. Calls of others than the library neither
    // count nor fail.
    bool fails(const void* caller);

  private:
    const char* name_;
    int error_, other_error_;
    std::atomic<int> calls_{0};
    Point* next_;
};

}  // namespace lenswire::test
