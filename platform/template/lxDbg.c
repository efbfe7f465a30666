/* The debug library of a new platform, to be filled in: each function says what it has to do. As it stands it registers
 * units and drops every message, which is enough to run the reader. Compile it with the platform's C compiler. */

#include "lxDbg.h"

#include <stdarg.h>
#include <stdio.h>

/* The masks. A message is printed when its level shares a bit with the mask of its unit, or with that of unit 0. Give the
 * platform's users a way to set them. */
UInt32 kvStbDbg_DbgUnit[LX_DBG_UNITS];

/* Gives `name` a unit, the same one when it comes again. A platform with several components has a table of names here. */
UInt32 lxDbg_RegisterModule(lxDbg_Unit_t* pUnit, const char* name)
{
    if (pUnit == NULL || name == NULL) {
        return 1;
    }
    *pUnit = 1;
    return 0;
}

/* Prints a message, for example to a serial line. The caller has tested the masks. */
void lxDbg_Print(lxDbg_Unit_t unit, UInt32 level, const char* format, ...)
{
    (void)unit;
    (void)level;
    (void)format;
}

/* Formats the explanation of a failed assertion. The text is valid until the next call. */
const char* lxDbg_StrAssertFormat(const char* format, ...)
{
    static char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

/* Reports a failed assertion: a wrong argument, or an inconsistency. It returns, unless the platform wants to stop. */
void lxDbg_AssertError(const char* condition, const char* text, const char* file, int line)
{
    (void)condition;
    (void)text;
    (void)file;
    (void)line;
}
