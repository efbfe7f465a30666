// Units of H.264 and H.265: with a length before each one, as some files have them, or with start codes.

#pragma once

#include "lxAviRead.h"

#include <string>

namespace lxavi {

enum class NalCodec { H264, H265 };

struct NalParameters {
    UInt32 lengthBytes = 0; // of the length before each unit; 0: the units have start codes
    std::string sets;       // the parameter sets, with start codes
};

// What the codec data of a stream's format say. Damaged data give what is there before the damage.
NalParameters ParseCodecData(NalCodec codec, const std::string& data);

// A frame with start codes. It stays as it is when its units do not fill it exactly.
std::string WithStartCodes(const std::string& frame, UInt32 lengthBytes);

} // namespace lxavi
