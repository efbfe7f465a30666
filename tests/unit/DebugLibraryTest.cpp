// The host's debug library: units, masks, sinks, assertions.

#include "LogRecorder.hpp"

#include "lxDbgHost.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace avitest {
namespace {

lxDbg_Unit_t Unit(const char* name)
{
    lxDbg_Unit_t unit = 0;
    EXPECT_EQ(lxDbg_RegisterModule(&unit, name), 0u);
    return unit;
}

TEST(DebugLibrary, TheSameNameIsTheSameUnit)
{
    const lxDbg_Unit_t unit = Unit("one");
    EXPECT_NE(unit, LX_DBG_GLOBAL_UNIT);
    EXPECT_EQ(Unit("one"), unit);
    EXPECT_NE(Unit("two"), unit);
}

TEST(DebugLibrary, RegistrationNeedsAPlaceAndAName)
{
    lxDbg_Unit_t unit = 5;
    EXPECT_EQ(lxDbg_RegisterModule(nullptr, "x"), 1u);
    EXPECT_EQ(lxDbg_RegisterModule(&unit, nullptr), 1u);
}

TEST(DebugLibrary, AMaskIsKeptForAUnitThatRegistersLater)
{
    lxDbg_SetLevelMask("later", 0x123);
    const lxDbg_Unit_t unit = Unit("later");
    EXPECT_EQ(kvStbDbg_DbgUnit[unit], 0x123u);
    lxDbg_SetLevelMask("later", 0);
    EXPECT_EQ(kvStbDbg_DbgUnit[unit], 0u);
}

TEST(DebugLibrary, ALevelIsOnByItsUnitOrByTheGlobalUnit)
{
    const lxDbg_Unit_t unit = Unit("masked");
    EXPECT_EQ(lxDbg_LevelIsOn(unit, 0xFFFFFFFFu), 0);
    lxDbg_SetLevelMask("masked", 0x40);
    EXPECT_EQ(lxDbg_LevelIsOn(unit, 0x40), 1);
    EXPECT_EQ(lxDbg_LevelIsOn(unit, 0x80), 0);
    lxDbg_SetLevelMask("*", 0x80);
    EXPECT_EQ(lxDbg_LevelIsOn(unit, 0x8180), 1);
    lxDbg_SetLevelMask("*", 0);
    lxDbg_SetLevelMask("masked", 0);
}

TEST(DebugLibrary, MessagesReachTheCallback)
{
    LogRecorder log;
    lxDbg_Print(Unit("speaker"), 0x8100, "%d and %s", 7, "eight");
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0].uiLevel, 0x8100u);
    EXPECT_EQ(log.Lines()[0].text, "7 and eight");
}

TEST(DebugLibrary, AssertionsReachTheCallbackAndCarryOn)
{
    LogRecorder log;
    lxDbg_AssertError("a == b", lxDbg_StrAssertFormat("a is %d", 3), "some/file", 42);
    ASSERT_EQ(log.Assertions().size(), 1u);
    EXPECT_EQ(log.Assertions()[0].condition, "a == b");
    EXPECT_EQ(log.Assertions()[0].text, "a is 3");
    EXPECT_EQ(log.Assertions()[0].file, "some/file");
}

TEST(DebugLibrary, TheFileSinkAppendsLines)
{
    const std::string path = ::testing::TempDir() + "lxdbg-test-" + std::to_string(getpid()) + ".log";
    std::remove(path.c_str());
    ASSERT_EQ(lxDbg_LogToFile(path.c_str()), 0u);
    lxDbg_Print(Unit("writer"), 0x40, "hello");
    lxDbg_AssertError("x", "y", "z", 1);
    lxDbg_LogToStandardError();
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_EQ(text.str(), "writer 0x0040 hello\nassertion failed: x (y) at z:1\n");
    EXPECT_EQ(lxDbg_LogToFile("/proc/self/no/log"), 1u);
}

TEST(DebugLibraryDeathTest, AssertionsAbortWhenToldTo)
{
    EXPECT_DEATH(
        {
            lxDbg_LogToStandardError();
            lxDbg_AbortOnAssert(1);
            lxDbg_AssertError("never", "told to abort", "file", 1);
        },
        "assertion failed: never \\(told to abort\\) at file:1");
}

TEST(DebugLibraryDeathTest, TheEnvironmentSetsMasks)
{
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe"; // a process of its own, with this environment
    setenv("LXDBG", "fromenv=0x8100,*=0x4,broken", 1);
    EXPECT_EXIT(
        {
            const bool right = kvStbDbg_DbgUnit[Unit("fromenv")] == 0x8100 && kvStbDbg_DbgUnit[0] == 0x4;
            std::exit(right ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    unsetenv("LXDBG");
}

TEST(DebugLibraryDeathTest, UnitsRunOut)
{
    EXPECT_EXIT(
        {
            lxDbg_Unit_t unit = 0;
            UInt32 failures = 0;
            for (int i = 0; i < 40; ++i) {
                failures += lxDbg_RegisterModule(&unit, ("many" + std::to_string(i)).c_str());
            }
            std::exit(failures > 0 && unit == LX_DBG_GLOBAL_UNIT ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace avitest
