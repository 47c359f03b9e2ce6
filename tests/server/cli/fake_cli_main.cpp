// The command line with the tests' service class registered: the end-to-end tests of call and
// batch run through it while the bill classes are built elsewhere.

#include "../fake_service.h"
#include "cli.h"

int main(int argc, char** argv) {
    billdata_test_register();
    return billdata::cli::run(argc, argv);
}
