#include "Input.hpp"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lxavigst {
namespace {

// The reader seeks over what it does not read, therefore a buffer of the usual size is enough.
constexpr gsize kStreamBuffer = 64 * 1024;

// ---- The functions of a stdio stream ----

struct Cookie {
    Input* pInput;
    off64_t position;
};

ssize_t ReadCookie(void* pCookie, char* pBuffer, size_t size)
{
    Cookie& cookie = *static_cast<Cookie*>(pCookie);
    const gssize given = cookie.pInput->Read(static_cast<guint64>(cookie.position), pBuffer, size);
    if (given < 0) {
        errno = EIO;
        return -1;
    }
    cookie.position += given;
    return given;
}

// As in a file, a position behind the end is allowed, and a read there finds the end. The reader looks for lists there.
int SeekCookie(void* pCookie, off64_t* pOffset, int whence)
{
    Cookie& cookie = *static_cast<Cookie*>(pCookie);
    const auto size = static_cast<off64_t>(cookie.pInput->Size());
    const off64_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? cookie.position : size;
    off64_t target = 0;
    if (__builtin_add_overflow(from, *pOffset, &target) || target < 0) {
        errno = EINVAL;
        return -1;
    }
    cookie.position = target;
    *pOffset = target;
    return 0;
}

int CloseCookie(void* pCookie)
{
    delete static_cast<Cookie*>(pCookie);
    return 0;
}

// ---- A file, a pipe, a device ----

class FileInput : public Input {
public:
    FileInput(int descriptor, bool canSeek, guint64 size) : m_descriptor(descriptor), m_pWaiting(gst_poll_new(TRUE))
    {
        m_canSeek = canSeek;
        m_size = size;
        gst_poll_fd_init(&m_watched);
        m_watched.fd = descriptor;
        gst_poll_add_fd(m_pWaiting, &m_watched);
        gst_poll_fd_ctl_read(m_pWaiting, &m_watched, TRUE);
    }

    ~FileInput() override
    {
        gst_poll_free(m_pWaiting);
        close(m_descriptor);
    }

    gssize Read(guint64 position, void* pBuffer, gsize size) override
    {
        if (m_canSeek) {
            return pread(m_descriptor, pBuffer, size, static_cast<off_t>(position));
        }
        for (;;) {
            if (gst_poll_wait(m_pWaiting, GST_CLOCK_TIME_NONE) < 0 && errno != EINTR && errno != EAGAIN) {
                return -1; // interrupted
            }
            const gssize given = read(m_descriptor, pBuffer, size);
            if (given >= 0 || (errno != EINTR && errno != EAGAIN)) {
                return given;
            }
        }
    }

    void Interrupt(bool interrupted) override { gst_poll_set_flushing(m_pWaiting, interrupted); }

private:
    int m_descriptor;
    GstPoll* m_pWaiting;
    GstPollFD m_watched;
};

int SetError(GError** ppError, int code, const std::string& path, const char* pReason)
{
    g_set_error(ppError, GST_RESOURCE_ERROR, code, "\"%s\" %s", path.c_str(), pReason);
    return -1;
}

int OpenDescriptor(const std::string& path, GError** ppError)
{
    // Without O_NONBLOCK, opening a pipe would wait for its writer.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor >= 0) {
        return descriptor;
    }
    const std::string reason = std::string("cannot be opened: ") + g_strerror(errno);
    return SetError(ppError, errno == ENOENT ? GST_RESOURCE_ERROR_NOT_FOUND : GST_RESOURCE_ERROR_OPEN_READ, path,
                    reason.c_str());
}

// ---- The element before a pad ----

class PadInput : public Input {
public:
    explicit PadInput(GstPad* pPad) : m_pPad(pPad)
    {
        gint64 bytes = 0;
        m_canSeek = true;
        m_size = gst_pad_peer_query_duration(pPad, GST_FORMAT_BYTES, &bytes) != FALSE && bytes > 0
                     ? static_cast<guint64>(bytes)
                     : 0;
    }

    gssize Read(guint64 position, void* pBuffer, gsize size) override
    {
        if (position >= m_size) {
            return 0;
        }
        GstBuffer* pData = nullptr;
        const GstFlowReturn result =
            gst_pad_pull_range(m_pPad, position, static_cast<guint>(MIN(size, m_size - position)), &pData);
        m_flow = result == GST_FLOW_EOS ? GST_FLOW_OK : result;
        if (result != GST_FLOW_OK) {
            return result == GST_FLOW_EOS ? 0 : -1;
        }
        const gsize given = gst_buffer_extract(pData, 0, pBuffer, size);
        gst_buffer_unref(pData);
        return static_cast<gssize>(given);
    }

    // Those before may wait for data.
    void Interrupt(bool interrupted) override
    {
        m_flow = GST_FLOW_OK;
        gst_pad_push_event(m_pPad, interrupted ? gst_event_new_flush_start() : gst_event_new_flush_stop(FALSE));
    }

    GstFlowReturn Flow() const override { return m_flow; }

private:
    GstPad* m_pPad;
    std::atomic<GstFlowReturn> m_flow{GST_FLOW_OK};
};

} // namespace

FILE* Input::OpenStream()
{
    auto* const pCookie = new Cookie{this, 0};
    const cookie_io_functions_t functions = {ReadCookie, nullptr, m_canSeek ? SeekCookie : nullptr, CloseCookie};
    FILE* const pStream = fopencookie(pCookie, "rb", functions);
    if (pStream == nullptr) {
        delete pCookie;
        return nullptr;
    }
    m_buffer.resize(kStreamBuffer);
    setvbuf(pStream, m_buffer.data(), _IOFBF, m_buffer.size());
    return pStream;
}

std::unique_ptr<Input> OpenFile(const std::string& path, GError** ppError)
{
    const int descriptor = OpenDescriptor(path, ppError);
    if (descriptor < 0) {
        return nullptr;
    }
    struct stat status = {};
    const bool known = fstat(descriptor, &status) == 0;
    if (known && S_ISDIR(status.st_mode)) {
        SetError(ppError, GST_RESOURCE_ERROR_OPEN_READ, path, "is a directory");
        close(descriptor);
        return nullptr;
    }
    const off_t end =
        known && (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode)) ? lseek(descriptor, 0, SEEK_END) : -1;
    return std::make_unique<FileInput>(descriptor, end >= 0, end >= 0 ? static_cast<guint64>(end) : 0);
}

std::unique_ptr<Input> OpenPad(GstPad* pPad) { return std::make_unique<PadInput>(pPad); }

} // namespace lxavigst
