#include "support/LogCapture.h"

#include <algorithm>
#include <mutex>

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include "platform/Logger.h"

namespace corvane_test {

namespace {

class RecordingAppender : public log4cplus::Appender {
public:
    ~RecordingAppender() override { destructorImpl(); }
    void close() override {}
    std::vector<LogRecord> take() const {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_records;
    }
    void clear() {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_records.clear();
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        std::lock_guard<std::mutex> guard(m_mutex);
        m_records.push_back({event.getLogLevel(), event.getLoggerName(), event.getMessage(),
                             event.getFile()});
    }

private:
    mutable std::mutex m_mutex;
    std::vector<LogRecord> m_records;
};

}  // namespace

LogCapture::LogCapture(int in_iLevel) {
    Tarvik::initializeLogging();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    m_iOldRootLevel = root.getLogLevel();
    m_appender = log4cplus::SharedAppenderPtr(new RecordingAppender);
    m_appender->setName(LOG4CPLUS_TEXT("corvane.test.capture"));
    root.addAppender(m_appender);
    log4cplus::SharedAppenderPtr console = root.getAppender(LOG4CPLUS_TEXT("corvane.stderr"));
    m_iOldConsoleThreshold = console ? console->getThreshold() : log4cplus::WARN_LOG_LEVEL;
    if (console) console->setThreshold(log4cplus::OFF_LOG_LEVEL);
    root.setLogLevel(in_iLevel);
}

LogCapture::~LogCapture() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAppender(m_appender);
    root.setLogLevel(m_iOldRootLevel);
    log4cplus::SharedAppenderPtr console = root.getAppender(LOG4CPLUS_TEXT("corvane.stderr"));
    if (console) console->setThreshold(m_iOldConsoleThreshold);
}

std::vector<LogRecord> LogCapture::records() const {
    return static_cast<RecordingAppender&>(*m_appender).take();
}

std::vector<std::string> LogCapture::messages(const std::string& in_logger) const {
    std::vector<std::string> out;
    for (const LogRecord& record : records()) {
        if (in_logger.empty() || record.logger == in_logger) out.push_back(record.message);
    }
    return out;
}

bool LogCapture::contains(int in_iLevel, const std::string& in_text) const {
    for (const LogRecord& record : records()) {
        if (record.level == in_iLevel && record.message.find(in_text) != std::string::npos) return true;
    }
    return false;
}

size_t LogCapture::count(const std::string& in_text) const {
    const std::vector<LogRecord> all = records();
    return std::count_if(all.begin(), all.end(), [&](const LogRecord& record) { return record.message == in_text; });
}

std::vector<std::string> LogCapture::assertions() const {
    static const std::string kPrefix = "ASSERTION FAILED: ";
    std::vector<std::string> out;
    for (const LogRecord& record : records()) {
        if (record.level == log4cplus::ERROR_LOG_LEVEL && record.message.rfind(kPrefix, 0) == 0) {
            out.push_back(record.message.substr(kPrefix.size()));
        }
    }
    return out;
}

bool LogCapture::asserted(const std::string& in_text) const {
    const std::vector<std::string> all = assertions();
    return std::find(all.begin(), all.end(), in_text) != all.end();
}

void LogCapture::clear() { static_cast<RecordingAppender&>(*m_appender).clear(); }

}  // namespace corvane_test
