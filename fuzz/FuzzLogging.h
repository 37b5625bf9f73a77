// Every log record of a fuzz target is built from the input, at every level, and written nowhere.
#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include "platform/Logger.h"

inline bool logEverythingToNowhere() {
    Tarvik::initializeLogging();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    return true;
}
