// make-memory COUNT: prints the data folder of a database with COUNT events, made when it isn't
// there yet.

#include "Store/Memories.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 2 || std::atoi(argv[1]) < 1)
        return 2;
    std::puts(mnemora::bench::memoryOf(std::atoi(argv[1])).c_str());
    return 0;
}
