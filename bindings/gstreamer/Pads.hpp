// The pads of the streams: names, caps and tags.

#pragma once

#include "lxAviRead.h"

#include <gst/gst.h>

#include <vector>

namespace lxavigst {

// What has to be done to a payload before others understand it.
struct Conversion {
    guint rowBytes = 0;    // of an uncompressed picture whose rows stand from bottom to top; 0: nothing to do
    guint sampleBytes = 0; // of all channels of an uncompressed sample; 0 for all else
    guint rate = 0;        // of uncompressed samples
    std::vector<guint> channelPlaces; // where each channel goes; empty: they stand where they should
};

// A stream that has a pad.
struct Stream {
    UInt32 number;
    UInt32 kind;       // LX_AVIREAD_STREAM_…
    GstPad* pPad;      // owned, besides the element; null before AddPads
    GstCaps* pCaps;    // owned
    GstTagList* pTags; // owned; codec, bit rate, title
    Conversion conversion;
    bool allKeyFrames;  // every frame can be decoded alone
    bool hasTimes;      // the headers tell the times of its chunks
    GstClockTime begin; // when it begins
    GstClockTime end;   // when it ends, as far as something tells
    bool endIsCounted;  // by the index or the media data

    // Where delivery is.
    GstClockTime position;  // behind the last buffer or gap
    GstClockTime groupEnd;  // backward: what plays from here on was delivered already
    GstClockTime groupFrom; // backward: start of the first buffer of the group; none before it
    bool discontinuous;     // the next buffer does not follow the last one
    bool fresh;             // nothing was pushed since delivery has moved
    bool ended;             // what follows is not wanted
};

// The templates of the pads.
void AddTemplates(GstElementClass* pClass);

// One for each stream that can be delivered and has caps, in their order, without pads. Video that has no frame in the file
// gets none, because a decoder that gets nothing fails.
std::vector<Stream> MakeStreams(GstElement* pElement, bool videoIsEmpty);

// Notes when a stream ends, by what is known now.
void NoteEnd(Stream& stream);

struct PadFunctions {
    GstPadEventFunction pfnEvent;
    GstPadQueryFunction pfnQuery;
};

// Gives every stream its pad, which has got its first events, `stream-start` and `caps`, when the element gets it.
void AddPads(GstElement* pElement, std::vector<Stream>& streams, guint groupId, const PadFunctions& functions);

// Takes the pads away, and releases what the streams own.
void RemovePads(GstElement* pElement, std::vector<Stream>& streams);

// The texts of the file, and its container. Owned by the caller.
GstTagList* FileTags(GstElement* pElement);

} // namespace lxavigst
