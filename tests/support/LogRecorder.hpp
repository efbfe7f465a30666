// Records the messages and the failed assertions of the reader, through the host's debug library.

#pragma once

#include "lxDbgHost.h"

#include <string>
#include <vector>

namespace avitest {

struct LogLine {
    UInt32 uiLevel;
    std::string text;
};

struct AssertLine {
    std::string condition;
    std::string text;
    std::string file;
    size_t uiLinesBefore; // messages recorded before it
};

#ifdef LX_AVIREAD_NO_MESSAGES
constexpr bool kHasMessages = false;
#else
constexpr bool kHasMessages = true;
#endif

// A build of the library without messages has none to record. A test that asks for messages is skipped there, at the
// place where it asks; assertions are recorded in every build.
class LogRecorder {
public:
    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    void SetMask(UInt32 mask); // 0xFFFFFFFF at first
    void Clear();

    const std::vector<LogLine>& Lines() const;
    const std::vector<AssertLine>& Assertions() const { return m_assertions; }

    // The number of lines that are equal to `text` (Count), or begin with `text` (CountPrefix).
    size_t Count(const std::string& text) const;
    size_t CountPrefix(const std::string& text) const;
    bool Has(const std::string& text) const { return Count(text) > 0; }
    bool Has(UInt32 level, const std::string& text) const;
    bool HasPrefix(const std::string& text) const { return CountPrefix(text) > 0; }
    // The place among the recorded lines, from `from` on, of the first one that begins with `text`; the number of all
    // lines where there is none.
    size_t Find(const std::string& text, size_t from = 0) const;
    bool HasAssertion(const std::string& condition, const std::string& text) const;

private:
    static void SkipWithoutMessages();

    std::vector<LogLine> m_lines;
    std::vector<AssertLine> m_assertions;
};

} // namespace avitest
