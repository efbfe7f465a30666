// Runs a fuzz target over the files that are named, where libFuzzer is not built in.

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
        // half of it is an input, too, and so are its first bytes
        LLVMFuzzerTestOneInput(reinterpret_cast<const UInt8*>(bytes.data()), bytes.size() / 2);
        LLVMFuzzerTestOneInput(reinterpret_cast<const UInt8*>(bytes.data()), bytes.size() / 100);
    }
    std::printf("%d inputs replayed\n", argc - 1);
    return argc > 1 ? 0 : 1;
}
