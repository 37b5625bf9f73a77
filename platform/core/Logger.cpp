#include "platform/Logger.h"

#include <map>
#include <mutex>

#include <log4cplus/appender.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/spi/loggingevent.h>

namespace Tarvik {

namespace {

std::once_flag s_loggingOnce;

void setUpLogging() {
    log4cplus::initialize();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true /*stderr*/, true));
    console->setName(LOG4CPLUS_TEXT("corvane.stderr"));
    console->setLayout(std::unique_ptr<log4cplus::Layout>(
        new log4cplus::PatternLayout(LOG4CPLUS_TEXT("%p %c - %m%n"))));
    root.addAppender(console);
    root.setLogLevel(WARN_LOG_LEVEL);
}

}  // namespace

void initializeLogging() { std::call_once(s_loggingOnce, setUpLogging); }

Logger::Logger(const std::string& in_strName) {
    initializeLogging();
    // Ancestors first: a logger made later between a logger and its existing
    // parent re-links that logger, which the back end does without a lock
    // against threads logging through it.
    for (size_t dot = in_strName.find('.'); dot != std::string::npos; dot = in_strName.find('.', dot + 1)) {
        log4cplus::Logger::getInstance(in_strName.substr(0, dot));
    }
    m_logger = log4cplus::Logger::getInstance(in_strName);
}

void Logger::forcedLog(int in_iLevel, const std::string& in_strMessage, const char* in_szFile,
                       int in_iLine) const {
    m_logger.forcedLog(in_iLevel, in_strMessage, in_szFile, in_iLine);
}

Logger& getLogger(const char* in_szName) {
    // Loggers are never destroyed: records may be written from static destructors.
    static std::mutex* s_pMutex = new std::mutex;
    static std::map<std::string, Logger*>* s_pLoggers = new std::map<std::string, Logger*>;
    std::lock_guard<std::mutex> guard(*s_pMutex);
    Logger*& pLogger = (*s_pLoggers)[in_szName];
    if (pLogger == nullptr) pLogger = new Logger(in_szName);
    return *pLogger;
}

void setRootLogLevel(int in_iLevel) {
    initializeLogging();
    log4cplus::Logger::getRoot().setLogLevel(in_iLevel);
}

bool parseLogLevel(const std::string& in_strText, int& out_iLevel) {
    static const std::pair<const char*, int> s_levels[] = {
        {"TRACE", TRACE_LOG_LEVEL}, {"DEBUG", DEBUG_LOG_LEVEL}, {"INFO", INFO_LOG_LEVEL},
        {"WARN", WARN_LOG_LEVEL},   {"ERROR", ERROR_LOG_LEVEL}, {"FATAL", FATAL_LOG_LEVEL},
        {"OFF", OFF_LOG_LEVEL}};
    for (const auto& level : s_levels) {
        if (in_strText == level.first) {
            out_iLevel = level.second;
            return true;
        }
    }
    return false;
}

TraceScope::TraceScope(const Logger& in_logger, const char* in_szName, const char* in_szFile,
                       int in_iLine)
    : m_logger(in_logger), m_szName(in_szName), m_szFile(in_szFile), m_iLine(in_iLine),
      m_bLogged(in_logger.isEnabledFor(TRACE_LOG_LEVEL)) {
    if (m_bLogged) m_logger.forcedLog(TRACE_LOG_LEVEL, std::string("ENTER ") + m_szName, m_szFile, m_iLine);
}

TraceScope::~TraceScope() {
    if (m_bLogged) m_logger.forcedLog(TRACE_LOG_LEVEL, std::string("EXIT ") + m_szName, m_szFile, m_iLine);
}

}  // namespace Tarvik
