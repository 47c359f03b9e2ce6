// The billdata command-line program.

#include "cli.h"

int main(int argc, char** argv) {
    return billdata::cli::run(argc, argv);
}
