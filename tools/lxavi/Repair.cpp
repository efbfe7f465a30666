// lxavi repair: writes a copy of a file with a fresh index and right headers, or completes the file itself.

#include "Commands.hpp"
#include "FileTexts.hpp"
#include "InPlace.hpp"
#include "Output.hpp"

#include <algorithm>

namespace lxavi {

namespace {

const std::vector<std::string> kMembers = {
    "written",          "chunks", "key_frames", "places_left_out", "left_out_bytes", "left_out_behind_lists_bytes",
    "streams_left_out", "index",  "riff_lists", "corrected"};

constexpr UInt32 kRepairBudget = 1u << 30; // room for every key frame that an index of the file names

WrittenFile Plan(const Reader& reader, const Inventory& inventory)
{
    constexpr UInt64 kBytesAround = 8 + 1 + 16 + 8; // a chunk's header, pad byte, and records
    WrittenFile file;
    static_cast<void>(lxAviReadCore_GetAvihData(&file.header));
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        file.streams.push_back(StreamOfFile(reader, i));
    }
    file.texts = TextsOfFile();
    for (const Piece& piece : inventory.Pieces()) {
        file.expectedBytes += kBytesAround + piece.size;
    }
    return file;
}

// What is told in both ways of repair.
Json CommonReport(const Reader& reader, const Inventory& inventory, const std::string& written)
{
    Json report;
    report["written"] = written;
    report["chunks"] = inventory.Pieces().size();
    report["key_frames"] = inventory.KeyFrames();
    report["places_left_out"] = inventory.PlacesLeftOut();
    report["left_out_bytes"] = inventory.BytesLeftOut();
    report["left_out_behind_lists_bytes"] = inventory.BytesOutside();
    lxAviRead_Avih_t avih = {};
    static_cast<void>(lxAviReadCore_GetAvihData(&avih));
    report["streams_left_out"] = std::max(avih.dwStreams, reader.StreamCount()) - reader.StreamCount();
    return report;
}

Json Copy(const Reader& reader, const Inventory& inventory, const RepairOptions& repair)
{
    const std::string& path = repair.output;
    OutputFile out(path, reader.Settings().Path(), repair.force);
    AviWriter writer(out, Plan(reader, inventory));
    SourceFile source(reader.Settings().Path());
    Progress progress("repairing", reader.FileSize());
    for (const Piece& piece : inventory.Pieces()) {
        progress.At(piece.offset);
        writer.BeginChunk(piece.id, piece.streamNr, piece.size, piece.listed);
        source.Copy(piece.offset + 8, piece.size, [&](std::span<const UInt8> bytes) { writer.Payload(bytes); });
    }
    for (UInt32 i = 0; i < reader.StreamCount(); ++i) {
        writer.SetLength(i, inventory.LengthOf(i));
    }
    writer.Finish();
    out.Commit();
    Json report = CommonReport(reader, inventory, path);
    report["index"] = writer.HasSuperIndex() ? "OpenDML super indexes, and idx1" : "idx1";
    report["riff_lists"] = writer.Lists();
    return report;
}

} // namespace

int RunRepair(const Options& options, const RepairOptions& repair)
{
    RefuseUnknownMembers(options, kMembers); // before the work
    if (!repair.inPlace) {
        RefuseToOverwrite(repair.output, options.Path(), repair.force); // before the work
    }
    if (repair.inPlace && options.file == "-") {
        throw UsageError("--in-place needs the name of a file");
    }
    Options settings = options;
    settings.budget = kRepairBudget;
    settings.defaultMode = false; // which has no walk over the media data
    Reader reader(settings);
    if (!reader.IsRegularFile()) {
        throw Failure("cannot be repaired: it is no regular file");
    }
    const Inventory inventory(reader);
    if (!repair.inPlace) {
        PrintReport(options, Copy(reader, inventory, repair));
        return kDone;
    }
    Json report = CommonReport(reader, inventory, options.file);
    report["corrected"] = CompleteInPlace(reader, inventory);
    PrintReport(options, report);
    return kDone;
}

} // namespace lxavi
