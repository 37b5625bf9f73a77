// Every log record of a fuzz target is built from the input, at every level, and written nowhere.
#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include "platform/Logger.h"

inline bool logEverythingToNowhere() {
    Tarvik::setRootLogLevel(log4cplus::TRACE_LOG_LEVEL);  // sets up the default output first
    log4cplus::Logger::getRoot().removeAllAppenders();
    log4cplus::Logger::getRoot().addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    return true;
}
