// cpLog: the URL model's logging bridge. Every class of the family logs
// through it onto the platform logger "corvane.media.vocal"; each record is
// reported as coming from "cpLog.cpp", whatever file and line the caller gives.
#pragma once

#include <syslog.h>  // LOG_EMERG (0) ... LOG_DEBUG (7)

// The priorities beyond syslog's own.
#define LOG_DEBUG_STACK 8
#define LOG_DEBUG_OPER 9
#define LOG_DEBUG_HB 10
#define LOG_LAST_PRIORITY LOG_DEBUG_HB

// Formats the message (at most 4095 bytes are kept) and logs it at the level
// of the priority: EMERG, ALERT, CRIT as FATAL; ERR as ERROR; WARNING as WARN;
// NOTICE, INFO as INFO; DEBUG and the three DEBUG_ priorities as DEBUG. A
// priority outside 0 to 10 is dropped. Nothing is formatted when the logger is
// not enabled for that level.
void cpLog(int in_iPriority, const char* in_szFile, int in_iLine, const char* in_szFormat, ...)
    __attribute__((format(printf, 4, 5)));

// Whether a record of this priority would be written now. Lets a caller skip
// work spent only on arguments (encoding a URL for a DEBUG line).
bool cpLogIsEnabled(int in_iPriority);

// Priority names indexed by priority 0 to 10, each table ended by a null entry:
// "EMERG" ... "DEBUG_HB", and the four-character forms "EMRG" ... "DHB ".
extern const char* const cpLogPriorityNames[LOG_LAST_PRIORITY + 2];
extern const char* const cpLogPriorityShortNames[LOG_LAST_PRIORITY + 2];

// Logs with the caller's file and line.
#define CPLOG(priority, ...) cpLog((priority), __FILE__, __LINE__, __VA_ARGS__)
