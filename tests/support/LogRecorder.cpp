#include "LogRecorder.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace avitest {

LogRecorder::LogRecorder()
{
    lxDbg_LogToCallback(
        [](void* context, const char*, UInt32 level, const char* text) {
            static_cast<LogRecorder*>(context)->m_lines.push_back({level, text});
        },
        [](void* context, const char* condition, const char* text, const char* file, int) {
            auto* const pRecorder = static_cast<LogRecorder*>(context);
            pRecorder->m_assertions.push_back({condition, text, file, pRecorder->m_lines.size()});
        },
        this);
    SetMask(0xFFFFFFFFu);
}

LogRecorder::~LogRecorder()
{
    SetMask(0);
    lxDbg_LogToStandardError();
}

// Uses the global unit, because the reader logs as the global unit until its first Open registers it.
void LogRecorder::SetMask(UInt32 mask) { lxDbg_SetLevelMask("*", mask); }

void LogRecorder::Clear()
{
    m_lines.clear();
    m_assertions.clear();
}

// The exception ends the test; GoogleTest takes it for one whose outcome has been recorded.
void LogRecorder::SkipWithoutMessages()
{
    if (!kHasMessages) {
        [] { GTEST_SKIP() << "this build has no messages"; }();
        throw testing::AssertionException(
            testing::TestPartResult(testing::TestPartResult::kSkip, __FILE__, __LINE__, "this build has no messages"));
    }
}

const std::vector<LogLine>& LogRecorder::Lines() const
{
    SkipWithoutMessages();
    return m_lines;
}

size_t LogRecorder::Count(const std::string& text) const
{
    const std::vector<LogLine>& lines = Lines();
    return static_cast<size_t>(
        std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) { return line.text == text; }));
}

size_t LogRecorder::CountPrefix(const std::string& text) const
{
    const std::vector<LogLine>& lines = Lines();
    return static_cast<size_t>(
        std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) { return line.text.starts_with(text); }));
}

bool LogRecorder::Has(UInt32 level, const std::string& text) const
{
    const std::vector<LogLine>& lines = Lines();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const LogLine& line) { return line.uiLevel == level && line.text == text; });
}

size_t LogRecorder::Find(const std::string& text, size_t from) const
{
    const std::vector<LogLine>& lines = Lines();
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(from);
    const auto found =
        std::find_if(begin, lines.end(), [&](const LogLine& line) { return line.text.starts_with(text); });
    return static_cast<size_t>(found - lines.begin());
}

bool LogRecorder::HasAssertion(const std::string& condition, const std::string& text) const
{
    return std::any_of(m_assertions.begin(), m_assertions.end(),
                       [&](const AssertLine& line) { return line.condition == condition && line.text == text; });
}

} // namespace avitest
