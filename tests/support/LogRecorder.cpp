#include "LogRecorder.hpp"

#include <algorithm>

namespace avitest {

LogRecorder::LogRecorder()
{
    lxDbg_LogToCallback(
        [](void* context, const char*, UInt32 level, const char* text) {
            static_cast<LogRecorder*>(context)->m_lines.push_back({level, text});
        },
        [](void* context, const char* condition, const char* text, const char* file, int) {
            static_cast<LogRecorder*>(context)->m_assertions.push_back({condition, text, file});
        },
        this);
    SetMask(0xFFFFFFFFu);
}

LogRecorder::~LogRecorder()
{
    SetMask(0);
    lxDbg_LogToStandardError();
}

// The reader logs as the global unit until its first Open registers it.
void LogRecorder::SetMask(UInt32 mask) { lxDbg_SetLevelMask("*", mask); }

void LogRecorder::Clear()
{
    m_lines.clear();
    m_assertions.clear();
}

size_t LogRecorder::Count(const std::string& text) const
{
    return static_cast<size_t>(
        std::count_if(m_lines.begin(), m_lines.end(), [&](const LogLine& line) { return line.text == text; }));
}

size_t LogRecorder::CountPrefix(const std::string& text) const
{
    return static_cast<size_t>(std::count_if(m_lines.begin(), m_lines.end(),
                                             [&](const LogLine& line) { return line.text.starts_with(text); }));
}

bool LogRecorder::Has(UInt32 level, const std::string& text) const
{
    return std::any_of(m_lines.begin(), m_lines.end(),
                       [&](const LogLine& line) { return line.uiLevel == level && line.text == text; });
}

bool LogRecorder::HasAssertion(const std::string& condition, const std::string& text) const
{
    return std::any_of(m_assertions.begin(), m_assertions.end(),
                       [&](const AssertLine& line) { return line.condition == condition && line.text == text; });
}

} // namespace avitest
