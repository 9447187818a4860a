#include "Cli.h"

#include <iostream>

int main(int argc, char** argv) {
    return kelsrc::cli::run({argv + (argc > 0), argv + argc}, std::cin, std::cout, std::cerr);
}
