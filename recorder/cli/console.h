// The program's own output, kept apart from the library's.
//
// The library writes its diagnostics to the standard output and standard error of the process that loads it.
// So before it is loaded the program puts its own output on copies of the two descriptors and turns the
// originals to a log file: what the user sees, and what a script reads as JSON, is the program's alone.
#pragma once

#include <cstdio>
#include <string>

#include "recorder/support/failure.h"

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
    int out_descriptor() const { return fileno(out_); }
    // Lines that fit on the terminal, and characters that fit in one; no limit where there is none.
    int terminal_lines() const;
    size_t terminal_columns() const;

    // Errors become JSON, and notes are dropped.
    void speak(bool json, bool quiet);

    // From now on output that nobody reads is dropped rather than waited for.
    void be_impatient() { impatient_ = true; }

    void print(const std::string& text);  // to standard output, as it is
    void line(const std::string& text);   // to standard output
    void note(const std::string& text);   // to standard output, as it is, unless it is to be quiet
    // To standard error, with the program's name, or as an object with the code's cause.
    void error_line(const std::string& text, int code = kFailed);

  private:
    void print_without_waiting(const std::string& text);

    bool impatient_ = false;
    bool json_ = false;
    bool quiet_ = false;
    FILE* out_;
    FILE* err_;
};

}  // namespace lenswire::recorder
