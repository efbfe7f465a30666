// Where the bytes of a file come from, as a stdio stream that the reader can own.

#pragma once

#include <gst/gst.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace lxavigst {

class Input {
public:
    virtual ~Input() = default;

    // Reads at a position; an input that cannot seek goes on where it stands. 0 at the end of the data, -1 when the read
    // fails or was interrupted.
    virtual gssize Read(guint64 position, void* pBuffer, gsize size) = 0;

    // Ends a read that waits for data, and those that would wait, until it is called with false. A read of a file does not
    // wait. Any thread may call it.
    virtual void Interrupt(bool interrupted) = 0;

    // What the last read met: GST_FLOW_FLUSHING when those before have stopped, GST_FLOW_ERROR when they have failed, and told
    // so. Else GST_FLOW_OK, after a failure of this input itself, too.
    virtual GstFlowReturn Flow() const { return GST_FLOW_OK; }

    bool CanSeek() const { return m_canSeek; }
    guint64 Size() const { return m_size; } // bytes; 0 when it is not known

    // A stream over the input, for the reader to own. The input has to live longer. Null when there is no memory.
    FILE* OpenStream();

protected:
    bool m_canSeek = false;
    guint64 m_size = 0;

private:
    std::vector<char> m_buffer; // of the stream
};

// A file, a pipe or a device. A read from a pipe that waits for its writer can be interrupted. Null, and an error with the
// reason in `*ppError`, when it cannot be opened.
std::unique_ptr<Input> OpenFile(const std::string& path, GError** ppError);

// What the element before a sink pad has. The pad is active in pull mode.
std::unique_ptr<Input> OpenPad(GstPad* pPad);

} // namespace lxavigst
