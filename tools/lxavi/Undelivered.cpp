#include "Undelivered.hpp"

#include "MediaData.hpp"
#include "RiffWalk.hpp"

#include <algorithm>

namespace lxavi {

namespace {

class Search {
public:
    explicit Search(const Reader& reader) : m_reader(reader) {}

    Undelivered Run(const std::map<UInt32, UInt64>* met, bool ended)
    {
        WalkOverStructure();
        if (met != nullptr && (ended || m_found.damage) && !m_reader.Settings().defaultMode) {
            WalkOverMediaData();
        }
        if (met != nullptr) {
            Subtract(*met);
        }
        return m_found;
    }

private:
    void WalkOverStructure()
    {
        const SourceFile file(m_reader.Settings().Path());
        RiffWalk walk(file, [this](const Finding& finding) { NoteDamage(finding); });
        UInt32 streams = 0;
        for (RiffPart part = {}; walk.Next(part);) {
            if (part.type == 0 && IsMediaId(part.id) && HasStreamNumber(part.id)) {
                Take(part);
            }
            if (part.type == Code("strl") && streams++ >= LX_AVIREAD_STREAMS) {
                m_found.strange.try_emplace(streams - 1, 0);
            }
        }
    }

    void Take(const RiffPart& part)
    {
        const UInt32 number = StreamOf(part.id);
        const bool isDescribed = m_reader.Stream(number) != nullptr && number < m_reader.StreamCount();
        if (!part.isInMovi) {
            ++m_found.outside;
        } else if (!isDescribed) {
            ++m_found.strange[number];
        } else if (!IsDescriptorId(part.id) && part.offset + 8 + part.size <= part.end) {
            ++m_found.all[number];
        }
    }

    void NoteDamage(const Finding& finding)
    {
        if (finding.severity == Severity::Error) {
            m_found.damage = m_found.damage.value_or(finding);
            m_found.damagedPlaces += finding.places;
        }
    }

    // The library finds chunks behind damage that ends the structure. Where it cannot read on, those before that place count.
    void WalkOverMediaData()
    {
        std::map<UInt32, UInt64> chunks;
        try {
            ForEachMediaChunk(m_reader, [&](const lxAviRead_MediaChunk_t& chunk) { ++chunks[chunk.uiStreamNr]; });
        } catch (const Failure&) {
            // delivery has told the reason
        }
        for (const auto& [number, count] : chunks) {
            m_found.all[number] = std::max(m_found.all[number], count);
        }
    }

    void Subtract(const std::map<UInt32, UInt64>& met)
    {
        for (const auto& [number, chunks] : m_found.all) {
            const auto found = met.find(number);
            const UInt64 delivered = found != met.end() ? found->second : 0;
            if (chunks > delivered) {
                m_found.lost[number] = chunks - delivered;
            }
        }
    }

    const Reader& m_reader;
    Undelivered m_found;
};

} // namespace

Undelivered LookForUndelivered(const Reader& reader, const std::map<UInt32, UInt64>* met, bool ended)
{
    return Search(reader).Run(met, ended);
}

} // namespace lxavi
