// lxavi repair: writes a copy of a file with a fresh index and right headers, or completes the file itself.

#include "Commands.hpp"
#include "InPlace.hpp"
#include "Output.hpp"
#include "RiffScan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace lxavi {

namespace {

namespace fs = std::filesystem;

constexpr UInt32 kRepairBudget = 1u << 30; // room for every key frame that an index of the file names

std::string BytesOfStream(UInt32 streamNr, UInt32 kind)
{
    UInt32 size = 0;
    static_cast<void>(lxAviReadCore_GetStreamBytes(streamNr, kind, nullptr, 0, &size));
    std::string bytes(std::min(size, LX_AVIREAD_KEPT_BYTES), '\0');
    static_cast<void>(
        lxAviReadCore_GetStreamBytes(streamNr, kind, bytes.data(), static_cast<UInt32>(bytes.size()), &size));
    return bytes;
}

WrittenStream StreamOfFile(const Reader& reader, UInt32 streamNr)
{
    WrittenStream stream = {reader.Stream(streamNr)->Header, {}};
    constexpr std::pair<UInt32, UInt32> kKinds[] = {{LX_AVIREAD_BYTES_STRF, Code("strf")},
                                                    {LX_AVIREAD_BYTES_STRD, Code("strd")},
                                                    {LX_AVIREAD_BYTES_STRN, Code("strn")},
                                                    {LX_AVIREAD_BYTES_VPRP, Code("vprp")}};
    for (const auto& [kind, code] : kKinds) {
        if (const std::string bytes = BytesOfStream(streamNr, kind); !bytes.empty()) {
            stream.chunks.push_back({code, bytes});
        }
    }
    return stream;
}

std::vector<NamedBytes> TextsOfFile()
{
    std::vector<NamedBytes> texts;
    UInt32 code = 0;
    for (UInt32 i = 0; (code = lxAviReadCore_GetFileTextCode(i)) != 0; ++i) {
        std::string text(lxAviReadCore_GetFileText(code, nullptr, 0) + size_t{1}, '\0');
        static_cast<void>(lxAviReadCore_GetFileText(code, text.data(), static_cast<UInt32>(text.size())));
        text.resize(std::strlen(text.c_str()) + 1); // the library keeps the beginning of a long text
        texts.push_back({code, text});
    }
    return texts;
}

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
    report["file"] = reader.Settings().file;
    report["written"] = written;
    report["chunks"] = inventory.Pieces().size();
    report["key frames"] = inventory.KeyFrames();
    report["places left out"] = inventory.PlacesLeftOut();
    report["bytes left out"] = inventory.BytesLeftOut();
    report["bytes left out behind the lists"] = inventory.BytesOutside();
    lxAviRead_Avih_t avih = {};
    static_cast<void>(lxAviReadCore_GetAvihData(&avih));
    if (avih.dwStreams > reader.StreamCount()) {
        report["streams left out"] = avih.dwStreams - reader.StreamCount();
    }
    return report;
}

Json Copy(const Reader& reader, const Inventory& inventory, const std::string& path)
{
    OutputFile out(path);
    AviWriter writer(out, Plan(reader, inventory));
    SourceFile source(reader.Settings().file);
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
    Json report = CommonReport(reader, inventory, path);
    report["index"] = writer.HasSuperIndex() ? "OpenDML super indexes, and idx1" : "idx1";
    report["RIFF lists"] = writer.Lists();
    return report;
}

void RefuseToOverwrite(const std::string& source, const std::string& path, bool force)
{
    std::error_code error;
    if (fs::equivalent(source, path, error)) {
        throw Failure("would be overwritten: choose another file for the copy, or --in-place");
    }
    if (fs::exists(path, error) && !force) {
        throw Failure(fmt::format("{} exists: --force overwrites it", path));
    }
}

} // namespace

int RunRepair(const Options& options, const RepairOptions& repair)
{
    if (!repair.inPlace) {
        RefuseToOverwrite(options.file, repair.output, repair.force);
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
        PrintReport(options, Copy(reader, inventory, repair.output));
        return kDone;
    }
    Json report = CommonReport(reader, inventory, options.file);
    report["corrected"] = CompleteInPlace(reader, inventory);
    PrintReport(options, report);
    return kDone;
}

} // namespace lxavi
