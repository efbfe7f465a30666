#include "Player.hpp"

#include <algorithm>

namespace lxavigst {

Player::Player(GstElement* pElement, const PadFunctions& functions)
    : m_pElement(pElement), m_functions(functions), m_pTask(gst_task_new(Run, this, nullptr)),
      m_pFlows(gst_flow_combiner_new())
{
    g_rec_mutex_init(&m_working);
    gst_task_set_lock(m_pTask, &m_working);
    gst_segment_init(&m_segment, GST_FORMAT_TIME);
}

Player::~Player()
{
    gst_object_unref(m_pTask);
    gst_flow_combiner_free(m_pFlows);
    g_rec_mutex_clear(&m_working);
}

// ---- States ----

bool Player::Start(std::unique_ptr<Input> pInput, guint tableBytes, bool rebuild)
{
    std::unique_ptr<Session> pSession = Session::Begin(std::move(pInput));
    if (pSession == nullptr) {
        GST_ELEMENT_ERROR(m_pElement, RESOURCE, BUSY, ("Another AVI file is being read in this process."),
                          ("The reader opens one file at a time."));
        return false;
    }
    m_tableBytes = tableBytes;
    m_rebuild = rebuild;
    m_prepared = m_tableIsRebuilt = m_cutIsTold = false;
    m_segmentIsDue = m_tagsAreDue = true;
    m_way = Way::Forward;
    m_skipUntil = 0;
    m_endEarly = false;
    m_lastSeek = m_lastRateChange = GST_SEQNUM_INVALID;
    m_segmentIsSent = false;
    m_seqnum = gst_util_seqnum_next();
    m_groupId = gst_util_group_id_next();
    m_jumpIsDue = false;
    {
        const std::lock_guard interrupts(m_interrupts);
        m_pSession = std::move(pSession);
        const ElementLock lock(m_pElement);
        m_stopping = false;
        gst_segment_init(&m_segment, GST_FORMAT_TIME);
    }
    return gst_task_start(m_pTask) != FALSE;
}

void Player::Interrupt()
{
    {
        const ElementLock lock(m_pElement);
        m_stopping = true;
    }
    InterruptReads();
}

// Ends the read that waits.
void Player::InterruptReads()
{
    const std::lock_guard interrupts(m_interrupts);
    if (m_pSession != nullptr) {
        m_pSession->Interrupt(true);
    }
}

// Lets reads work again, unless the element stops. False then.
bool Player::ResumeReads()
{
    const std::lock_guard interrupts(m_interrupts);
    if (IsStopping()) {
        return false;
    }
    m_endEarly = false;
    m_pSession->Interrupt(false);
    return true;
}

bool Player::IsStopping() const
{
    const ElementLock lock(m_pElement);
    return m_stopping;
}

void Player::EndEarly()
{
    {
        const std::lock_guard interrupts(m_interrupts);
        if (m_pSession == nullptr) {
            return;
        }
        m_endEarly = true;
        m_pSession->Interrupt(true);
    }
    SetTask(GST_TASK_STARTED); // it may stand at the end of a segment
}

void Player::Stop()
{
    Interrupt();
    gst_task_stop(m_pTask);
    gst_task_join(m_pTask);
    const std::lock_guard requests(m_requests);
    gst_flow_combiner_clear(m_pFlows);
    RemovePads(m_pElement, m_streams);
    const std::lock_guard interrupts(m_interrupts);
    m_pSession.reset();
    const ElementLock lock(m_pElement);
    m_published = m_seekable = m_hasKeyFrames = false;
    gst_segment_init(&m_segment, GST_FORMAT_TIME);
}

// Pauses the task, or lets it go on. Once the element stops, the task does nothing but stop.
void Player::SetTask(GstTaskState state)
{
    const ElementLock lock(m_pElement);
    gst_task_set_state(m_pTask, m_stopping ? GST_TASK_STOPPED : state);
}

// ---- The task ----

void Player::Run(gpointer pPlayer) { static_cast<Player*>(pPlayer)->Work(); }

void Player::Work()
{
    m_taskThread = std::this_thread::get_id();
    const guint moves = m_moves;
    const GstFlowReturn result = WorkOnce();
    if (result != GST_FLOW_OK && moves == m_moves) { // who listens to a buffer or a message may have sought
        SetTask(GST_TASK_PAUSED);
        if (!IsStopping()) {
            Conclude(result);
        }
    }
    m_taskThread = std::thread::id();
}

GstFlowReturn Player::WorkOnce()
{
    if (!m_prepared && !Prepare()) {
        if (m_endEarly && WasInterrupted() && !IsStopping()) {
            GST_ELEMENT_ERROR(m_pElement, STREAM, FAILED, ("The file was ended before it began."), (nullptr));
        }
        return GST_FLOW_FLUSHING;
    }
    if (m_segmentIsDue) {
        SendSegment();
        return GST_FLOW_OK;
    }
    if (m_endEarly) {
        return EndNow();
    }
    return m_jumpIsDue ? RepeatJump() : DeliverNext();
}

// Somebody has sent an EOS event: everything ends, a segment that is played again and again, too.
GstFlowReturn Player::EndNow()
{
    if (!ResumeReads()) {
        return GST_FLOW_FLUSHING;
    }
    const ElementLock lock(m_pElement);
    m_segment.flags = static_cast<GstSegmentFlags>(m_segment.flags & ~GST_SEGMENT_FLAG_SEGMENT);
    return GST_FLOW_EOS;
}

bool Player::Prepare()
{
    if (!Open()) {
        return false;
    }
    m_streams = MakeStreams(m_pElement, m_tableIsRebuilt && !m_pSession->HasTable());
    if (m_streams.empty()) {
        GST_ELEMENT_ERROR(m_pElement, STREAM, DEMUX, ("The file has no stream that can be played."), (nullptr));
        return false;
    }
    AddPads(m_pElement, m_streams, m_groupId, m_functions);
    for (const Stream& stream : m_streams) {
        gst_flow_combiner_add_pad(m_pFlows, stream.pPad);
    }
    Publish();
    BeginRange();
    m_prepared = true;
    gst_element_no_more_pads(m_pElement);
    return true;
}

// Opens the file, and builds a table where there is none. A file without a table plays from start to end.
bool Player::Open()
{
    const UInt32 result = m_pSession->Open(m_tableBytes);
    if (result == LX_ERR_AVIREAD_ABORTED || WasInterrupted()) {
        return false;
    }
    if (result != LX_OK && m_pSession->InputFlow() == GST_FLOW_ERROR) {
        return false; // who has failed has told it
    }
    if (result != LX_OK) {
        GST_ELEMENT_ERROR(m_pElement, STREAM, WRONG_TYPE, ("%s", lxAviReadCore_ResultText(result)), (nullptr));
        return false;
    }
    const bool wanted = m_rebuild && !m_pSession->HasTable() && m_pSession->CanParseMediaData();
    return !wanted || BuildTable();
}

// Whether a read has failed because nobody wants its bytes any more.
bool Player::WasInterrupted() const
{
    return lxAviReadCore_GetAbortFlag() != 0 || m_pSession->InputFlow() == GST_FLOW_FLUSHING;
}

// False when it is interrupted.
bool Player::BuildTable()
{
    PostProgress(GST_PROGRESS_TYPE_START, "Building the index");
    m_buildsTable = true;
    const UInt32 result = m_pSession->ParseMediaData([this](guint percent) {
        gchar* const pText = g_strdup_printf("Building the index (%u %%)", percent);
        PostProgress(GST_PROGRESS_TYPE_CONTINUE, pText);
        g_free(pText);
    });
    m_buildsTable = false;
    if (result == LX_ERR_AVIREAD_ABORTED) {
        PostProgress(GST_PROGRESS_TYPE_CANCELED, "The index was not built");
        return false;
    }
    m_tableIsRebuilt = true;
    PostProgress(result == LX_OK ? GST_PROGRESS_TYPE_COMPLETE : GST_PROGRESS_TYPE_ERROR,
                 result == LX_OK ? "The index is built" : lxAviReadCore_ResultText(result));
    m_pSession->Rewind();
    return true;
}

void Player::PostProgress(GstProgressType type, const char* pText)
{
    gst_element_post_message(m_pElement, gst_message_new_progress(GST_OBJECT(m_pElement), type, "index", pText));
}

// What queries need. A file without video has no key frames; it is read from the start for a seek.
void Player::Publish()
{
    GstClockTime duration = 0;
    for (const Stream& stream : m_streams) {
        duration = std::max(duration, GST_CLOCK_TIME_IS_VALID(stream.end) ? stream.end : 0);
    }
    const bool withoutVideo = m_pSession->CanSeek() && !m_pSession->CanParseMediaData();
    const ElementLock lock(m_pElement);
    m_segment.duration = duration > 0 ? duration : GST_CLOCK_TIME_NONE;
    m_published = true;
    m_hasKeyFrames = m_pSession->HasTable();
    m_seekable = m_hasKeyFrames || withoutVideo;
}

// Ends where somebody who hears of the event seeks.
void Player::PushToAll(GstEvent* pEvent, guint32 seqnum)
{
    const guint moves = m_moves;
    gst_event_set_seqnum(pEvent, seqnum);
    for (const Stream& stream : m_streams) {
        if (moves == m_moves) {
            gst_pad_push_event(stream.pPad, gst_event_ref(pEvent));
        }
    }
    gst_event_unref(pEvent);
}

void Player::SendSegment()
{
    const guint moves = m_moves;
    m_segmentIsDue = false;
    PushToAll(gst_event_new_segment(&m_segment), m_seqnum);
    m_segmentIsSent = moves == m_moves;
    if (!m_tagsAreDue || moves != m_moves) {
        return;
    }
    m_tagsAreDue = false;
    for (const Stream& stream : m_streams) {
        if (!gst_tag_list_is_empty(stream.pTags)) {
            gst_pad_push_event(stream.pPad, gst_event_new_tag(gst_tag_list_ref(stream.pTags)));
        }
    }
    PushToAll(gst_event_new_tag(FileTags(m_pElement)), m_seqnum);
}

// ---- The end ----

void Player::Conclude(GstFlowReturn result)
{
    if (result == GST_FLOW_FLUSHING) {
        return;
    }
    if (result == GST_FLOW_EOS && (m_segment.flags & GST_SEGMENT_FLAG_SEGMENT) != 0) {
        EndSegment();
        return;
    }
    if (result != GST_FLOW_EOS && result != GST_FLOW_ERROR) { // an error has its message already
        GST_ELEMENT_FLOW_ERROR(m_pElement, result);
    }
    PushToAll(gst_event_new_eos(), m_seqnum);
}

void Player::EndSegment()
{
    const GstClockTime stop = GST_CLOCK_TIME_IS_VALID(m_segment.stop) ? m_segment.stop : m_segment.position;
    const auto last = static_cast<gint64>(m_segment.rate < 0 ? m_segment.start : stop);
    GstMessage* const pDone = gst_message_new_segment_done(GST_OBJECT(m_pElement), GST_FORMAT_TIME, last);
    gst_message_set_seqnum(pDone, m_seqnum);
    gst_element_post_message(m_pElement, pDone);
    PushToAll(gst_event_new_segment_done(GST_FORMAT_TIME, last), m_seqnum);
}

} // namespace lxavigst
