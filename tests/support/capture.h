// What the process writes to its standard output and error, and what it holds of the system: threads and
// descriptors.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace lenswire::test {

// Takes standard output and error over for its scope, at the level of descriptors. What was captured is
// shown after all when the test has failed meanwhile. One at a time.
class Capture {
  public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    std::string out() const;
    std::string err() const;

  private:
    struct Stream {
        int descriptor;
        int saved;
        int file;
    };
    static Stream redirect(int descriptor);
    static void restore(const Stream& stream, bool show);
    static std::string text_of(const Stream& stream);

    Stream out_;
    Stream err_;
};

// Log lines with their line numbers replaced by N, so that they compare as wholes.
std::string unnumbered(const std::string& text);

// How many times a text occurs.
int occurrences(const std::string& text, const std::string& what);

// Polls until the predicate holds; false at the deadline, which is far beyond what any step takes.
bool wait_until(const std::function<bool()>& predicate,
                std::chrono::milliseconds deadline = std::chrono::seconds(20));

int thread_count();
int open_descriptors();
// Whether a descriptor of this process is open.
bool is_open(int descriptor);

}  // namespace lenswire::test
