// Runs a fuzz target with the files on the command line, in a build without libFuzzer.

#include "lxTypes.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const UInt8* pData, size_t size);

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const UInt8*>(bytes.data()), bytes.size());
        // also runs the target with the first half of the file, and with its first bytes
        LLVMFuzzerTestOneInput(reinterpret_cast<const UInt8*>(bytes.data()), bytes.size() / 2);
        LLVMFuzzerTestOneInput(reinterpret_cast<const UInt8*>(bytes.data()), bytes.size() / 100);
    }
    std::printf("%d inputs replayed\n", argc - 1);
    return argc > 1 ? 0 : 1;
}
