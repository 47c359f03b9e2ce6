// The billdata command-line program.
#include <iostream>

int main(int argc, char** argv) {
    (void)argc;
    (void)argv;
    std::cerr << "billdata: no command yet\n";
    return 2;
}
