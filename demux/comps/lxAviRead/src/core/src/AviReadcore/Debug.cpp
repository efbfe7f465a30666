// What every message goes through: the levels in force, and the words of checked calls.

#include "internal/Debug.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace lxAviReadCore {

UInt32 LogMask()
{
    return lxDbg_MaskOf(glxalAviRead_debug_unit);
}

const char* WantedText(const char* pPacked)
{
    return IsLogged(LevelOf(pPacked)) ? pPacked : Null;
}

namespace {

// A message in full. Texts are short, and so is what stands for each of their at most 16 arguments.
struct Message {
    char text[kLongestText + 16 * 20];
};

Message Format(const char* pPacked, va_list arguments)
{
    Message message;
    std::vsnprintf(message.text, sizeof message.text, Unpacked(pPacked), arguments);
    return message;
}

} // namespace

void PrintLog(const char* pPacked, ...)
{
    va_list arguments;
    va_start(arguments, pPacked);
    lxDbg_Print(glxalAviRead_debug_unit, LevelOf(pPacked), "%s", Format(pPacked, arguments).text);
    va_end(arguments);
}

void Say(const char* pPacked)
{
    if (WantedText(pPacked) != Null) {
        PrintLog(pPacked);
    }
}

void SayOf(const char* pPacked, const char* pName)
{
    if (WantedText(pPacked) != Null) {
        lxDbg_Print(glxalAviRead_debug_unit, LevelOf(pPacked), Unpacked(pPacked), pName);
    }
}

void ReportAssertion(const char* pCondition, SourcePlace place, const char* pPacked, ...)
{
    va_list arguments;
    va_start(arguments, pPacked);
    lxDbg_AssertError(Unpacked(pCondition), lxDbg_StrAssertFormat("%s", Format(pPacked, arguments).text), PathOf(place),
                      LineOf(place));
    va_end(arguments);
}

Unpacked::Unpacked(const char* pPacked)
{
    char* pEnd = m_text;
    while (*++pPacked != '\0') {
        const auto code = static_cast<UInt8>(*pPacked);
        if (code < kFirstPhrase) {
            *pEnd++ = *pPacked;
            continue;
        }
        Phrase phrase(kPhrases);
        for (UInt8 i = kFirstPhrase; i < code; ++i) {
            phrase = phrase.Next();
        }
        pEnd = std::copy_n(phrase.pBegin, phrase.uiLength, pEnd);
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
