// The columns of a chart over time: what falls into one column, however long the file is.

#pragma once

#include "lxAviRead.h"

#include <algorithm>
#include <vector>

namespace lxavi {

// Keeps the smallest value, the largest value and the sum of each column. There are at most kMost columns; their width
// doubles when the time goes on.
class Columns {
public:
    static constexpr size_t kMost = 1000;

    struct Column {
        double least = 0;
        double most = 0;
        double sum = 0;
        UInt64 count = 0; // of the values; 0: there is none
    };

    void Add(UInt64 msec, double value)
    {
        while (msec / m_width >= kMost) {
            Widen();
        }
        const auto at = static_cast<size_t>(msec / m_width);
        if (at >= m_columns.size()) {
            m_columns.resize(at + 1);
        }
        Join(m_columns[at], {value, value, value, 1});
    }

    UInt64 Width() const { return m_width; } // milliseconds
    const std::vector<Column>& All() const { return m_columns; }

    // Makes the columns at least that wide.
    void WidenTo(UInt64 msec)
    {
        while (m_width < msec) {
            Widen();
        }
    }

private:
    static void Join(Column& column, const Column& more)
    {
        if (more.count == 0) {
            return;
        }
        column.least = column.count > 0 ? std::min(column.least, more.least) : more.least;
        column.most = column.count > 0 ? std::max(column.most, more.most) : more.most;
        column.sum += more.sum;
        column.count += more.count;
    }

    void Widen()
    {
        std::vector<Column> wider((m_columns.size() + 1) / 2);
        for (size_t i = 0; i < m_columns.size(); ++i) {
            Join(wider[i / 2], m_columns[i]);
        }
        m_columns = std::move(wider);
        m_width *= 2;
    }

    UInt64 m_width = 1;
    std::vector<Column> m_columns;
};

} // namespace lxavi
