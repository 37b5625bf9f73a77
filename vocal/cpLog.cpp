#include "vocal/cpLog.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/Logger.h"

const char* const cpLogPriorityNames[LOG_LAST_PRIORITY + 2] = {
    "EMERG", "ALERT", "CRIT", "ERR", "WARNING", "NOTICE", "INFO",
    "DEBUG", "DEBUG_STACK", "DEBUG_OPER", "DEBUG_HB", nullptr};

const char* const cpLogPriorityShortNames[LOG_LAST_PRIORITY + 2] = {
    "EMRG", "ALRT", "CRIT", "ERR ", "WARN", "NOTC", "INFO",
    "DBUG", "DSTK", "DOP ", "DHB ", nullptr};

namespace {

// log4cplus level of each priority.
const int s_priorityLevels[LOG_LAST_PRIORITY + 1] = {
    Tarvik::FATAL_LOG_LEVEL, Tarvik::FATAL_LOG_LEVEL, Tarvik::FATAL_LOG_LEVEL,
    Tarvik::ERROR_LOG_LEVEL, Tarvik::WARN_LOG_LEVEL,  Tarvik::INFO_LOG_LEVEL,
    Tarvik::INFO_LOG_LEVEL,  Tarvik::DEBUG_LOG_LEVEL, Tarvik::DEBUG_LOG_LEVEL,
    Tarvik::DEBUG_LOG_LEVEL, Tarvik::DEBUG_LOG_LEVEL};

// The family's one logger, made on the first call (the static's initialisation
// is thread-safe) and kept for the life of the process.
const Tarvik::Logger& vocalLogger() {
    static const Tarvik::Logger& s_logger = Tarvik::getLogger("corvane.media.vocal");
    return s_logger;
}

bool isPriority(int in_iPriority) { return in_iPriority >= 0 && in_iPriority <= LOG_LAST_PRIORITY; }

}  // namespace

bool cpLogIsEnabled(int in_iPriority) {
    return isPriority(in_iPriority) && vocalLogger().isEnabledFor(s_priorityLevels[in_iPriority]);
}

void cpLog(int in_iPriority, const char* /*in_szFile*/, int /*in_iLine*/, const char* in_szFormat, ...) {
    // Decided before any formatting: a disabled priority costs one level test.
    if (!cpLogIsEnabled(in_iPriority)) return;
    char buffer[4096];
    va_list args;
    va_start(args, in_szFormat);
    const int written = std::vsnprintf(buffer, sizeof buffer, in_szFormat, args);
    va_end(args);
    if (written < 0) buffer[0] = '\0';
    // Every record of the family names this file, not the caller's.
    vocalLogger().forcedLog(s_priorityLevels[in_iPriority], std::string(buffer), "cpLog.cpp", __LINE__);
}
