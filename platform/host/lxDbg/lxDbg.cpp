// The debug library of a Linux host: named units with one mask each, and one sink for all output.

#include "lxDbgHost.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

UInt32 kvStbDbg_DbgUnit[LX_DBG_UNITS];

namespace {

constexpr std::size_t kNameLength = 31;    // significant characters of a unit's name
constexpr std::size_t kTextLength = 2048;  // longest message; the rest is cut
constexpr std::size_t kAssertLength = 512; // longest explanation of an assertion, terminator included

struct Callbacks {
    lxDbg_MessageFn message = nullptr;
    lxDbg_AssertFn assertion = nullptr;
    void* context = nullptr;
};

class DebugHost {
public:
    DebugHost() { ReadEnvironment(); }

    static DebugHost& Get()
    {
        static DebugHost host;
        return host;
    }

    UInt32 Register(lxDbg_Unit_t& unit, std::string name)
    {
        const std::lock_guard lock(m_mutex);
        name.resize(std::min(name.size(), kNameLength));
        for (UInt32 i = 1; i <= m_used; ++i) {
            if (m_names[i] == name) {
                unit = i;
                return 0;
            }
        }
        if (m_used + 1 >= LX_DBG_UNITS) {
            unit = LX_DBG_GLOBAL_UNIT;
            return 1;
        }
        unit = ++m_used;
        m_names[unit] = std::move(name);
        StoreMask(unit, m_masks.contains(m_names[unit]) ? m_masks[m_names[unit]] : 0);
        return 0;
    }

    void SetMask(const std::string& name, UInt32 mask)
    {
        const std::lock_guard lock(m_mutex);
        m_masks[name] = mask;
        for (UInt32 i = 0; i <= m_used; ++i) {
            if (m_names[i] == name) {
                StoreMask(i, mask);
            }
        }
    }

    void SetSink(spdlog::sink_ptr sink)
    {
        const std::lock_guard lock(m_mutex);
        m_callbacks = {};
        m_logger = MakeLogger(std::move(sink));
    }

    void SetCallbacks(const Callbacks& callbacks)
    {
        const std::lock_guard lock(m_mutex);
        m_callbacks = callbacks;
        m_logger = nullptr;
    }

    void Print(lxDbg_Unit_t unit, UInt32 level, const char* text)
    {
        const std::lock_guard lock(m_mutex);
        const std::string& name = m_names[unit <= m_used ? unit : LX_DBG_GLOBAL_UNIT];
        if (m_logger) {
            m_logger->info("{} {:#06x} {}", name, level, text);
        } else if (m_callbacks.message != nullptr) {
            m_callbacks.message(m_callbacks.context, name.c_str(), level, text);
        }
    }

    void Assertion(const char* condition, const char* text, const char* file, int line)
    {
        const std::lock_guard lock(m_mutex);
        if (m_logger) {
            m_logger->error("assertion failed: {} ({}) at {}:{}", condition, text, file, line);
            m_logger->flush();
        } else if (m_callbacks.assertion != nullptr) {
            m_callbacks.assertion(m_callbacks.context, condition, text, file, line);
        }
        if (m_abortOnAssert) {
            std::abort();
        }
    }

    void AbortOnAssert(bool abortOnAssert)
    {
        const std::lock_guard lock(m_mutex);
        m_abortOnAssert = abortOnAssert;
    }

private:
    static std::shared_ptr<spdlog::logger> MakeLogger(spdlog::sink_ptr sink)
    {
        auto logger = std::make_shared<spdlog::logger>("lxDbg", std::move(sink));
        logger->set_pattern("%v");
        return logger;
    }

    static void StoreMask(UInt32 unit, UInt32 mask)
    {
        __atomic_store_n(&kvStbDbg_DbgUnit[unit], mask, __ATOMIC_RELAXED);
    }

    void ReadEnvironment()
    {
        const char* variable = std::getenv("LXDBG");
        std::string_view rest = variable != nullptr ? variable : "";
        while (!rest.empty()) {
            const std::string item(rest.substr(0, rest.find(',')));
            rest.remove_prefix(std::min(rest.size(), item.size() + 1));
            if (const auto equals = item.find('='); equals != std::string::npos) {
                m_masks[item.substr(0, equals)] =
                    static_cast<UInt32>(std::strtoul(item.c_str() + equals + 1, nullptr, 0));
            }
        }
        if (m_masks.contains("*")) {
            StoreMask(LX_DBG_GLOBAL_UNIT, m_masks["*"]);
        }
    }

    std::recursive_mutex m_mutex;
    std::array<std::string, LX_DBG_UNITS> m_names{"*"};
    UInt32 m_used = 0; // highest unit number in use
    std::map<std::string, UInt32> m_masks;
    std::shared_ptr<spdlog::logger> m_logger = MakeLogger(std::make_shared<spdlog::sinks::stderr_sink_mt>());
    Callbacks m_callbacks;
    bool m_abortOnAssert = false;
};

[[maybe_unused]] const DebugHost& g_loadedBeforeMain = DebugHost::Get(); // reads LXDBG before main runs

} // namespace

UInt32 lxDbg_RegisterModule(lxDbg_Unit_t* pUnit, const char* name)
{
    if (pUnit == nullptr || name == nullptr) {
        return 1;
    }
    return DebugHost::Get().Register(*pUnit, name);
}

void lxDbg_Print(lxDbg_Unit_t unit, UInt32 level, const char* format, ...)
{
    char text[kTextLength];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    DebugHost::Get().Print(unit, level, text);
}

const char* lxDbg_StrAssertFormat(const char* format, ...)
{
    static thread_local char text[kAssertLength];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

void lxDbg_AssertError(const char* condition, const char* text, const char* file, int line)
{
    DebugHost::Get().Assertion(condition, text, file, line);
}

void lxDbg_SetLevelMask(const char* name, UInt32 mask) { DebugHost::Get().SetMask(name != nullptr ? name : "*", mask); }

void lxDbg_LogToStandardError(void) { DebugHost::Get().SetSink(std::make_shared<spdlog::sinks::stderr_sink_mt>()); }

UInt32 lxDbg_LogToFile(const char* path)
{
    try {
        DebugHost::Get().SetSink(std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
        return 0;
    } catch (const spdlog::spdlog_ex&) {
        return 1;
    }
}

void lxDbg_LogToCallback(lxDbg_MessageFn message, lxDbg_AssertFn assertion, void* context)
{
    DebugHost::Get().SetCallbacks({message, assertion, context});
}

void lxDbg_AbortOnAssert(Bool abortOnAssert) { DebugHost::Get().AbortOnAssert(abortOnAssert != 0); }
