/* The smallest debug library: in C, with the C library alone, without a heap and without locks. It is compiled as C and
 * as C++. Every line goes to one function of the program. */

#include "lxDbgMinimal.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#define NAME_LENGTH 31  /* significant characters of a unit's name */
#define LINE_LENGTH 512 /* longest line, terminator included; the rest is cut */

UInt32 kvStbDbg_DbgUnit[LX_DBG_UNITS];

static char names[LX_DBG_UNITS][NAME_LENGTH + 1] = {"global"};
static UInt32 units = 1; /* in use, with the global one */
static lxDbg_SinkFn sink;
static void* sinkContext;
static char assertText[LINE_LENGTH];

void lxDbg_SetSink(lxDbg_SinkFn newSink, void* context)
{
    sink = newSink;
    sinkContext = context;
}

UInt32 lxDbg_RegisterModule(lxDbg_Unit_t* pUnit, const char* name)
{
    if (pUnit == NULL || name == NULL) {
        return 1;
    }
    for (*pUnit = 1; *pUnit < units; ++*pUnit) {
        if (strncmp(names[*pUnit], name, NAME_LENGTH) == 0) {
            return 0;
        }
    }
    if (units == LX_DBG_UNITS) {
        *pUnit = LX_DBG_GLOBAL_UNIT;
        return 1;
    }
    snprintf(names[units], sizeof names[units], "%s", name);
    *pUnit = units++;
    return 0;
}

void lxDbg_Print(lxDbg_Unit_t unit, UInt32 level, const char* format, ...)
{
    char line[LINE_LENGTH];
    va_list arguments;
    if (sink == NULL) {
        return;
    }
    const int head =
        snprintf(line, sizeof line, "%s %x: ", names[unit < LX_DBG_UNITS ? unit : LX_DBG_GLOBAL_UNIT], (unsigned)level);
    va_start(arguments, format);
    vsnprintf(line + head, sizeof line - (size_t)head, format, arguments);
    va_end(arguments);
    sink(sinkContext, line);
}

const char* lxDbg_StrAssertFormat(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(assertText, sizeof assertText, format, arguments);
    va_end(arguments);
    return assertText;
}

void lxDbg_AssertError(const char* condition, const char* text, const char* file, int line)
{
    char report[2 * LINE_LENGTH];
    if (sink != NULL) {
        snprintf(report, sizeof report, "%s:%d: %s does not hold: %s", file, line, condition, text);
        sink(sinkContext, report);
    }
}
