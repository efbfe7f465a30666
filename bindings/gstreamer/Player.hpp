// What both elements do: a task that takes chunks from the session and pushes them from the pads, and the seeks and queries
// of those who play.
//
//   Start ──► task: opens the file, adds the pads ──► pushes chunk after chunk ──► end of the range: EOS or SEGMENT_DONE
//     │                                                   ▲        │
//     │                          a seek holds the task, ──┘        └─ backward: group by group; by key frames: steps
//   Stop ◄── from anywhere        moves, and lets it go on
//
// Who holds the task's lock calls the session: the task, or a seek between two chunks. Queries come from any thread; what
// they need is under the lock of the element.

#pragma once

#include "Clock.hpp"
#include "Pads.hpp"
#include "Session.hpp"

#include <gst/base/gstflowcombiner.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace lxavigst {

class Player {
public:
    Player(GstElement* pElement, const PadFunctions& functions);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Takes the library and starts the task. `tableBytes` is the budget of the key-frame table; with `rebuild`, a file
    // without an index gets its table from the media data. False, with a message on the bus, while another element has the
    // library.
    bool Start(std::unique_ptr<Input> pInput, guint tableBytes, bool rebuild);
    // Lets the read that waits fail. The task then stops as soon as nobody behind the pads holds it.
    void Interrupt();
    // Ends the task, and gives up the pads, the file and the library.
    void Stop();

    bool Seek(GstEvent* pEvent);
    // Ends what is played at the next chunk, as if the file ended there.
    void EndEarly();
    // `pPad` may be null: the query is for the element. False for a query that is for others to answer.
    bool Query(GstPad* pPad, GstQuery* pQuery) const;

private:
    struct SeekRequest;

    enum class Way {
        Forward,
        Backward,  // the groups of pictures from the last to the first, each of them forward
        KeyFrames, // key frames alone, in either direction
    };

    struct Target {
        GstClockTime time;
        UInt32 rounding;
    };

    // The task (Player.cpp)
    static void Run(gpointer pPlayer);
    void Work();
    GstFlowReturn WorkOnce();
    GstFlowReturn EndNow();
    bool WasInterrupted() const;
    void SetTask(GstTaskState state);
    void InterruptReads();
    bool ResumeReads();
    bool IsStopping() const;
    // Whether the thread is in the task, or in a seek, already.
    bool IsInside() const
    {
        return m_taskThread == std::this_thread::get_id() || m_seekThread == std::this_thread::get_id();
    }
    bool Prepare();
    bool Open();
    bool BuildTable();
    void PostProgress(GstProgressType type, const char* pText);
    void Publish();
    void SendSegment();
    void Conclude(GstFlowReturn result);
    void EndSegment();
    void PushToAll(GstEvent* pEvent, guint32 seqnum);

    // Chunks (Delivery.cpp)
    void BeginRange();
    void BeginGroup(GstClockTime start);
    GstFlowReturn DeliverNext();
    GstFlowReturn Fail(UInt32 result);
    GstFlowReturn RepeatJump();
    GstFlowReturn Deliver(const lxAviRead_ChunkData_t& chunk);
    GstFlowReturn GoOn(const Span& span);
    GstFlowReturn EndOfData();
    GstFlowReturn NextGroup();
    GstFlowReturn NextKeyFrame();
    bool HasAudioAt(GstClockTime time) const;
    Stream* Find(UInt32 streamNr);
    bool IsWanted(Stream& stream, const lxAviRead_ChunkData_t& chunk, const Span& span) const;
    bool IsOver(const Stream& stream) const;
    GstBuffer* ReadBuffer(Stream& stream, const lxAviRead_ChunkData_t& chunk, const Span& span);
    bool FollowsHole(const Stream& stream, const Span& span) const;
    GstFlowReturn Push(Stream& stream, GstBuffer* pBuffer, const Span& span);
    void PushGap(Stream& stream, GstClockTime from, GstClockTime until) const;
    void RepeatFrame(Stream& stream, const Span& span) const;
    bool HasNothing(const Stream& stream, const Span& leader) const;
    void FillGaps(const Stream& leader, const Span& span);
    void FillGroup(Stream& stream) const;
    void NotePosition(GstClockTime position);

    // Requests (Requests.cpp)
    void FlushPads(guint32 seqnum);
    void PushPast(GstEvent* pEvent, guint32 seqnum) const;
    bool Obey(const SeekRequest& request, bool flushed);
    bool Travel(const SeekRequest& request);
    bool Move(const SeekRequest& request);
    void GoTo(GstSegment& segment, const SeekRequest& request);
    bool VideoHasTimes() const;
    GstClockTime MoveTo(const Target& target);
    bool ChangeRate(const SeekRequest& request);
    bool IsPossible(const SeekRequest& request) const;

    GstElement* const m_pElement;
    const PadFunctions m_functions;
    GstTask* m_pTask;
    GRecMutex m_working;   // the task's lock
    std::mutex m_requests; // held by a seek that does not come out of the task, and while the pads go away
    std::atomic<guint32> m_lastSeek{GST_SEQNUM_INVALID};
    std::atomic<bool> m_lastSeekIsDone{false};
    std::atomic<guint32> m_lastRateChange{GST_SEQNUM_INVALID};
    std::atomic<bool> m_segmentIsSent{false}; // since the last flush

    // Under the task's lock
    guint m_tableBytes = 0;
    bool m_rebuild = false;
    bool m_prepared = false;
    bool m_tableIsRebuilt = false;
    bool m_segmentIsDue = false;
    bool m_tagsAreDue = false;
    bool m_cutIsTold = false;
    bool m_jumpIsDue = false;               // the last jump has to be made again, with another table
    bool m_firstGroup = false;              // backward: nothing was delivered yet
    std::atomic<bool> m_buildsTable{false}; // a call of the library runs that tells of its progress
    std::atomic<guint> m_moves{0};          // seeks that were made
    Way m_way = Way::Forward;
    Target m_target = {};          // of the last seek
    GstClockTime m_groupStart = 0; // backward: time of the group's key frame; by key frames: of the one to be shown
    GstClockTime m_latest = 0;     // backward: the latest start of a chunk that was met in the group
    GstClockTime m_interval = 0;   // by key frames: the least time between two
    GstClockTime m_skipUntil = 0;  // without a table: what ends before is not delivered
    guint32 m_seqnum = 0;          // of the seek that delivery obeys
    guint m_groupId = 0;
    std::vector<Stream> m_streams;
    GstFlowCombiner* m_pFlows;

    std::atomic<bool> m_endEarly{false};

    std::atomic<std::thread::id> m_taskThread; // that is in the task now
    std::atomic<std::thread::id> m_seekThread; // that has m_requests
    std::atomic<int> m_holders{0};             // seeks that wait for the task

    std::mutex m_interrupts; // held while reads are interrupted or let go on, and while the session comes or goes
    std::unique_ptr<Session> m_pSession;

    // Under the lock of the element. Who has the lock of the task writes them, and reads them without this one.
    GstSegment m_segment;
    bool m_hasKeyFrames = false;
    bool m_published = false; // the file is open, and queries have answers
    bool m_seekable = false;
    bool m_stopping = false;
};

// Holds the lock of an element for a scope.
class ElementLock {
public:
    explicit ElementLock(GstElement* pElement) : m_pElement(pElement) { GST_OBJECT_LOCK(m_pElement); }
    ~ElementLock() { GST_OBJECT_UNLOCK(m_pElement); }
    ElementLock(const ElementLock&) = delete;
    ElementLock& operator=(const ElementLock&) = delete;

private:
    GstElement* m_pElement;
};

} // namespace lxavigst
