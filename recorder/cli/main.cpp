#include "recorder/cli/commands.h"

int main(int argc, char** argv) {
    return lenswire::recorder::run_program(argc, argv);
}
