// When the chunks play.

#pragma once

#include "lxAviRead.h"

#include <gst/gst.h>

namespace lxavigst {

// In nanoseconds of the stream, exact.
struct Span {
    GstClockTime start;
    GstClockTime end; // the start of what follows in the stream
};

// Whether the headers tell the times of a stream.
bool HasTimes(UInt32 streamNr);

// Of the chunk that was delivered last. None when nothing tells.
Span SpanOf(const lxAviRead_ChunkData_t& chunk);

// When a stream ends, by the index, the media data or its header. None when nothing tells.
struct StreamEnd {
    GstClockTime time;
    bool counted; // by the index or the media data
};
StreamEnd EndOf(UInt32 streamNr);

} // namespace lxavigst
