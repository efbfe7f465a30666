#include "Undelivered.hpp"

#include "Inventory.hpp"
#include "RiffWalk.hpp"

#include <algorithm>

namespace lxavi {

namespace {

class Search {
public:
    Search(Reader& reader, const Delivered& delivered) : m_reader(reader), m_delivered(delivered) {}

    Undelivered Run()
    {
        WalkOverStructure();
        if ((m_isDamaged || m_delivered.hasStopped) && !m_reader.Settings().defaultMode) {
            WalkOverMediaData();
        }
        if (m_delivered.cutStream) {
            ++m_found.all[*m_delivered.cutStream];
        }
        if (m_delivered.isWholeFile) {
            SubtractDelivered();
        }
        return m_found;
    }

private:
    void WalkOverStructure()
    {
        const SourceFile file(m_reader.Settings().Path());
        RiffWalk walk(file, [this](const Finding& finding) { m_isDamaged |= finding.severity == Severity::Error; });
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

    // Wherever it stands. A cut one is none.
    void Take(const RiffPart& part)
    {
        const UInt32 number = StreamOf(part.id);
        const bool isDescribed = m_reader.Stream(number) != nullptr && number < m_reader.StreamCount();
        if (!isDescribed) {
            ++m_found.strange[number];
        } else if (!IsDescriptorId(part.id) && part.offset + 8 + part.size <= part.end) {
            ++m_found.all[number];
        }
    }

    // The library finds chunks behind damage that ends the structure.
    void WalkOverMediaData()
    {
        try {
            const Inventory inventory(m_reader);
            std::map<UInt32, UInt64> chunks;
            for (const Piece& piece : inventory.Pieces()) {
                chunks[piece.streamNr] += piece.listed != Listed::InIdx1Only ? 1 : 0;
            }
            for (const auto& [number, count] : chunks) {
                m_found.all[number] = std::max(m_found.all[number], count);
            }
            for (const Extent& place : inventory.Damage()) {
                TakeDamage(place);
            }
        } catch (const Failure&) {
            // delivery has told the reason
        }
    }

    void TakeDamage(const Extent& place)
    {
        if (m_delivered.isWholeFile || (place.start >= m_delivered.part.start && place.start < m_delivered.part.end)) {
            m_found.damage = m_found.damagedPlaces == 0 ? place : m_found.damage;
            ++m_found.damagedPlaces;
        }
    }

    void SubtractDelivered()
    {
        for (const auto& [number, chunks] : m_found.all) {
            const auto found = m_delivered.chunks.find(number);
            const UInt64 delivered = found != m_delivered.chunks.end() ? found->second : 0;
            if (chunks > delivered) {
                m_found.lost[number] = chunks - delivered;
            }
        }
    }

    Reader& m_reader;
    const Delivered& m_delivered;
    Undelivered m_found;
    bool m_isDamaged = false;
};

} // namespace

Undelivered LookForUndelivered(Reader& reader, const Delivered& delivered) { return Search(reader, delivered).Run(); }

} // namespace lxavi
