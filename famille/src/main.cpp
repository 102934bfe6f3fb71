#include "commandes.h"

#include <iostream>

int main(int argc, char** argv) {
    return tavi::famille::executer(std::vector<std::string>(argv + 1, argv + argc), std::cout,
                                   std::cerr);
}
