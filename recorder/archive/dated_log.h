// A log file whose every line begins with its date, for what the library prints: whoever writes to path() has
// the lines dated as they come.
//
// A thread takes them out of a pipe that holds a megabyte, so that a disk that stands still does not hold up
// those who print.
#pragma once

#include <string>
#include <thread>

namespace lenswire::recorder {

class DatedLog {
  public:
    explicit DatedLog(const std::string& file);  // throws a bad-input Failure when it cannot be written
    ~DatedLog();                                 // writes what has come
    DatedLog(const DatedLog&) = delete;
    DatedLog& operator=(const DatedLog&) = delete;

    // To be opened for writing.
    const std::string& path() const { return path_; }
    // Waits a moment until what has been printed is in the file: before a program leaves at once.
    void drain();

  private:
    void run();

    int file_ = -1;
    int from_ = -1, to_ = -1, end_ = -1;  // the pipe, and what ends the thread
    std::string path_;
    std::thread thread_;
};

}  // namespace lenswire::recorder
