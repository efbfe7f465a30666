// What every message goes through: the levels in force, and the words of checked calls.

#include "internal/Debug.hpp"

#include <cstdarg>
#include <cstdio>

namespace lxAviReadCore {

UInt32 LogMask()
{
    return lxDbg_MaskOf(glxalAviRead_debug_unit);
}

const char* WantedText(const char* pMessage)
{
    return IsLogged(LevelOf(pMessage)) ? pMessage : Null;
}

namespace {

// A message in full: its text, and 16 numbers at most or the words of an announced call in their place.
struct Message {
    char text[kLongestText + 16 * 20];
};

Message Format(const char* pWords, va_list arguments)
{
    Message message;
    std::vsnprintf(message.text, sizeof message.text, Unpacked(pWords), arguments);
    return message;
}

} // namespace

void PrintLog(const char* pMessage, ...)
{
    va_list arguments;
    va_start(arguments, pMessage);
    lxDbg_Print(glxalAviRead_debug_unit, LevelOf(pMessage), "%s", Format(pMessage + 1, arguments).text);
    va_end(arguments);
}

void Say(const char* pMessage)
{
    if (WantedText(pMessage) != Null) {
        PrintLog(pMessage);
    }
}

void SayOf(const char* pMessage, const char* pName)
{
    if (WantedText(pMessage) != Null) {
        lxDbg_Print(glxalAviRead_debug_unit, LevelOf(pMessage), Unpacked(pMessage + 1), pName);
    }
}

void ReportAssertion(const char* pCondition, SourcePlace place, const char* pWords, ...)
{
    va_list arguments;
    va_start(arguments, pWords);
    lxDbg_AssertError(Unpacked(pCondition), lxDbg_StrAssertFormat("%s", Format(pWords, arguments).text), PathOf(place),
                      LineOf(place));
    va_end(arguments);
}

Unpacked::Unpacked(const char* pWords)
{
    char* pEnd = m_text;
    for (; *pWords != '\0'; ++pWords) {
        const auto code = static_cast<UInt8>(*pWords);
        if (code < kFirstPhrase) {
            *pEnd++ = *pWords;
            continue;
        }
        const char* pPhrase = kPhrases;
        for (UInt8 i = kFirstPhrase; i < code; ++i) {
            pPhrase += std::strlen(pPhrase) + 1;
        }
        pEnd = stpcpy(pEnd, pPhrase);
    }
    *pEnd = '\0';
}

const char* PathOf(SourcePlace place)
{
    return place < PlaceAt(Module::Avi2ReadCore, 0) ? "src/demux/comps/lxAviRead/src/core/src/AviReadcore"
                                                    : "src/demux/comps/lxAviRead/src/core/src/Avi2ReadCore";
}

void AnnounceCall(const char* pCall, const char* pCaller, SourcePlace place)
{
    LX_LOG(kLevelCall, "Calling %s from %s at %s:%d", static_cast<const char*>(Unpacked(pCall)),
           static_cast<const char*>(Unpacked(pCaller)), PathOf(place), LineOf(place));
}

UInt32 ReportCall(UInt32 result, SourcePlace place)
{
    if (result != LX_OK) {
        LX_LOG(kLevelError, "Error 0x%x (%d )returned from function call at %s:%d", result, static_cast<Int32>(result),
               PathOf(place), LineOf(place));
    } else {
        LX_LOG(kLevelCall, "Successfully returned from function call at %s:%d", PathOf(place), LineOf(place));
    }
    return result;
}

} // namespace lxAviReadCore
