// What the result codes mean, in one sentence each.

#include "lxAviRead.h"

const char* lxAviReadCore_ResultText(UInt32 result)
{
    switch (result) {
    case LX_OK: return "The call has succeeded.";
    case LX_AVIREAD_END_OF_MEDIA: return "The media data has ended.";
    case LX_ERR_AVIREAD_READ: return "A read has failed.";
    case LX_ERR_AVIREAD_NO_MEMORY: return "There is not enough memory, or the budget is below one leaf of the table.";
    case LX_ERR_AVIREAD_OPEN: return "The file cannot be opened.";
    case LX_ERR_AVIREAD_NOT_AVI: return "This is no AVI file, or its headers are damaged.";
    case LX_ERR_AVIREAD_SEEK: return "A seek has failed.";
    case LX_ERR_AVIREAD_EOF: return "The file ends too early.";
    case LX_ERR_AVIREAD_NO_INDEX: return "There is no usable index.";
    case LX_ERR_AVIREAD_SUBTITLE_SKIPPED: return "The chunk is a subtitle of a track that is not selected.";
    case LX_ERR_AVIREAD_AUDIO_SKIPPED: return "The chunk is audio of another track, or before the jump's sync chunk.";
    case LX_ERR_AVIREAD_VIDEO_SKIPPED: return "The chunk is video of another stream, or before the jump's key frame.";
    case LX_ERR_AVIREAD_JUMP_NOT_VIDEO: return "The jump has not led to a video chunk.";
    case LX_ERR_AVIREAD_BAD_STREAM: return "The chunk names a stream that the file does not have.";
    case LX_ERR_AVIREAD_ABORTED: return "The call was aborted.";
    case LX_ERR_AVIREAD_INDEX_STREAM: return "An index chunk belongs to another stream.";
    case LX_ERR_AVIREAD_AVIX_LIST: return "An extension list does not begin with its media data.";
    case LX_ERR_AVIREAD_JUMP_RANGE: return "The jump leads outside the media data.";
    case LX_ERR_AVIREAD_NO_KEY_FRAME: return "The jump has not led to a key frame.";
    default: return "The result code is unknown.";
    }
}
