// The program's own output, kept apart from the library's.
//
// The library writes its diagnostics to the standard output and standard error of the process that loads it.
// So before it is loaded the program puts its own output on copies of the two descriptors and turns the
// originals to a log file: what the user sees, and what a script reads as JSON, is the program's alone.
#pragma once

#include <cstdio>
#include <string>

namespace lenswire::recorder {

class Console {
  public:
    Console();
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // From now on the library's lines go to `file` (appended), to nowhere when it is empty, or with `verbose`
    // to standard error. Throws a bad-input Failure when the file cannot be written.
    void divert_library(const std::string& file, bool verbose);

    bool out_is_terminal() const;
    // Lines that fit on the terminal.
    int terminal_lines() const;

    // From now on output that nobody reads is dropped rather than waited for.
    void be_impatient() { impatient_ = true; }

    void print(const std::string& text);       // to standard output, as it is
    void line(const std::string& text);        // to standard output
    void error_line(const std::string& text);  // to standard error, with the program's name

  private:
    void print_without_waiting(const std::string& text);

    bool impatient_ = false;
    FILE* out_;
    FILE* err_;
};

}  // namespace lenswire::recorder
