// Seeks in a file from C++17.
#include <lxAviRead.h>

#include <iostream>

int main(int argc, char** argv)
{
    Bool allIndexed = 0;
    if (argc != 2 || lxAviReadCore_Open(0, argv[1], 1, 1u << 20, LX_AVIREAD_FOLLOW_FORMAT | 1, &allIndexed) != LX_OK ||
        lxAviReadCore_ParseIndex(0) != LX_OK) {
        return 1;
    }
    std::cout << "key frame at " << lxAviReadCore_SeekToTime(2200, 0, lxAviRead_SetPosRoundDown) << " ms\n";
    return lxAviReadCore_Close() == LX_OK ? 0 : 1;
}
