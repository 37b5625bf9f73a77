// Named loggers over log4cplus. A message is built only when its level is
// enabled, and carries the source file and line of the call.
#pragma once

#include <sstream>
#include <string>

#include <log4cplus/logger.h>

namespace Tarvik {

// log4cplus's own level values.
enum LogLevel : int {
    TRACE_LOG_LEVEL = 0,
    DEBUG_LOG_LEVEL = 10000,
    INFO_LOG_LEVEL = 20000,
    WARN_LOG_LEVEL = 30000,
    ERROR_LOG_LEVEL = 40000,
    FATAL_LOG_LEVEL = 50000,
    OFF_LOG_LEVEL = 60000
};

class Logger {
public:
    explicit Logger(const std::string& in_strName);

    bool isEnabledFor(int in_iLevel) const { return m_logger.isEnabledFor(in_iLevel); }
    void forcedLog(int in_iLevel, const std::string& in_strMessage, const char* in_szFile,
                   int in_iLine) const;
    std::string getName() const { return m_logger.getName(); }

private:
    log4cplus::Logger m_logger;  // the back end's logger; thread-safe
};

// A logger that names a product word and a class or topic and lives for the
// whole process (never destroyed, so it may be used from static destructors).
// Created on first use: "static Logger& s = Tarvik::getLogger("corvane.net.X");".
Logger& getLogger(const char* in_szName);

// Applies the default output (standard error, one line per record:
// "LEVEL logger - message") and the root level. Called once, before any record.
void initializeLogging();
// Sets the level of the root logger (OFF_LOG_LEVEL silences everything).
void setRootLogLevel(int in_iLevel);
// Parses "TRACE", "DEBUG", ... "OFF"; false for any other text.
bool parseLogLevel(const std::string& in_strText, int& out_iLevel);

// Logs ENTER/EXIT of a scope at TRACE; its name is also the prefix of the
// scope's DEBUG messages ("HostNameServer::getHostByName : ...").
class TraceScope {
public:
    TraceScope(const Logger& in_logger, const char* in_szName, const char* in_szFile, int in_iLine);
    ~TraceScope();
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;

    const char* getName() const { return m_szName; }

private:
    const Logger& m_logger;  // logger the ENTER and EXIT lines go to
    const char* m_szName;    // scope name, a literal that outlives the scope
    const char* m_szFile;    // source file of the scope
    int m_iLine;             // source line of the scope
    bool m_bLogged;          // ENTER was logged, so EXIT is logged too
};

}  // namespace Tarvik

#define CORVANE_LOG(logger, level, expr)                                           \
    do {                                                                           \
        const ::Tarvik::Logger& corvaneLogger_ = (logger);                         \
        if (corvaneLogger_.isEnabledFor(level)) {                                  \
            std::ostringstream corvaneStream_;                                     \
            corvaneStream_ << expr;                                                \
            corvaneLogger_.forcedLog(level, corvaneStream_.str(), __FILE__, __LINE__); \
        }                                                                          \
    } while (0)

#define CORVANE_TRACE(logger, expr) CORVANE_LOG(logger, ::Tarvik::TRACE_LOG_LEVEL, expr)
#define CORVANE_DEBUG(logger, expr) CORVANE_LOG(logger, ::Tarvik::DEBUG_LOG_LEVEL, expr)
#define CORVANE_INFO(logger, expr) CORVANE_LOG(logger, ::Tarvik::INFO_LOG_LEVEL, expr)
#define CORVANE_WARN(logger, expr) CORVANE_LOG(logger, ::Tarvik::WARN_LOG_LEVEL, expr)
#define CORVANE_ERROR(logger, expr) CORVANE_LOG(logger, ::Tarvik::ERROR_LOG_LEVEL, expr)
#define CORVANE_FATAL(logger, expr) CORVANE_LOG(logger, ::Tarvik::FATAL_LOG_LEVEL, expr)

// Opens a trace scope named `name` in the current block, reachable as `traceScope`.
#define CORVANE_TRACE_SCOPE(logger, name) \
    ::Tarvik::TraceScope traceScope((logger), (name), __FILE__, __LINE__)
