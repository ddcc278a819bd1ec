#include "program.h"

#include <unistd.h>

#include <cstdio>

#include "recorder/cli/commands.h"

namespace lenswire::recorder {
namespace {

// Takes a standard stream over for its scope.
class Capture {
  public:
    explicit Capture(int descriptor)
        : descriptor_(descriptor), saved_(dup(descriptor)), file_(std::tmpfile()) {
        dup2(fileno(file_), descriptor_);
    }
    ~Capture() {
        dup2(saved_, descriptor_);
        close(saved_);
        std::fclose(file_);
    }
    std::string text() {
        std::string result;
        std::rewind(file_);
        for (int c = std::fgetc(file_); c != EOF; c = std::fgetc(file_)) result += static_cast<char>(c);
        return result;
    }

  private:
    int descriptor_;
    int saved_;
    std::FILE* file_;
};

}  // namespace

Outcome run_lenswire(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"lenswire", "--library", LENSWIRE_LIBRARY});
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::fflush(nullptr);
    Capture out(STDOUT_FILENO), err(STDERR_FILENO);
    Outcome outcome;
    outcome.code = run_program(static_cast<int>(arguments.size()), argv.data());
    std::fflush(nullptr);
    outcome.out = out.text();
    outcome.err = err.text();
    return outcome;
}

}  // namespace lenswire::recorder
