// Writes files with every kind of index into a folder. The fuzzers start with these files. Usage: write_seeds FOLDER

#include "AviBuilder.hpp"

#include <cstdio>
#include <fstream>
#include <string>

using namespace avitest;

namespace {

AviBuilder Film(IndexKind eKind, IxLayout eLayout, UInt32 lists)
{
    AviBuilder builder;
    builder.eIndex = eKind;
    builder.eLayout = eLayout;
    builder.Add(VideoStream()).Add(PcmStream()).Add(Mp3VbrStream()).Add(TextStream());
    if (lists > 1) {
        builder.dmlhTotalFrames = 8 * lists;
    }
    for (UInt32 list = 0; list < lists; ++list) {
        for (UInt32 i = 0; i < 8; ++i) {
            builder.Audio(1, Fill(40)).Audio(2, Fill(9)).Frame(0, Fill(10), i % 4 == 0);
        }
        builder.Drm(0, Fill(10)).Frame(0, Fill(6), true).Media("03st", Fill(5));
        if (list + 1 < lists) {
            builder.NextRiff();
        }
    }
    return builder;
}

// A script that selects default mode or format mode, opens, indexes, plays, seeks and steps.
Bytes Script(bool bFollow)
{
    Bytes script = {
        1, 64, static_cast<UInt8>(bFollow ? 0x81 : 1), 8, 0, 10, 0, 0, 30, 1, 5, 0, 9, 2, 1, 0, 9, 4, 1, 0, 9, 6, 1};
    script.resize(34);
    script.push_back(script[2]); // for the target that uses only the last byte, as option
    return script;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string folder = argc > 1 ? argv[1] : ".";
    int written = 0;
    for (const IndexKind eKind :
         {IndexKind::None, IndexKind::Idx1Relative, IndexKind::Idx1Absolute, IndexKind::SuperStandard,
          IndexKind::SuperField, IndexKind::OneLevelStandard, IndexKind::OneLevelField}) {
        for (const bool bFollow : {false, true}) {
            for (const UInt32 lists : {1u, 3u}) {
                AviBuilder film = Film(eKind, bFollow ? IxLayout::At32 : IxLayout::At36, lists);
                film.bIdx1Too = bFollow && lists == 3;
                film.beforeMovi = Chunk("JUNK", Fill(6)) + List("INFO", Chunk("ISFT", Text("me")));
                const Bytes bytes = film.Build() + Script(bFollow);
                std::ofstream out(folder + "/seed" + std::to_string(written++), std::ios::binary);
                out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
            }
        }
    }
    std::printf("%d seeds written\n", written);
    return written > 0 ? 0 : 1;
}
