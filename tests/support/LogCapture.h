// Records every log record written while it lives, so tests can check the
// texts that are the behaviour. A failed assertion is one of them: its report
// is the ERROR record "ASSERTION FAILED: <text>".
#pragma once

#include <string>
#include <vector>

#include <log4cplus/appender.h>

namespace corvane_test {

struct LogRecord {
    int level;           // log4cplus level value
    std::string logger;  // logger name
    std::string message; // the text
    std::string file;    // source file of the call
};

class LogCapture {
public:
    // Captures from in_iLevel up (DEBUG by default), on every logger; the
    // console stays silent meanwhile.
    explicit LogCapture(int in_iLevel = 10000);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> records() const;
    // Messages of one logger (every logger when empty), in order.
    std::vector<std::string> messages(const std::string& in_logger = "") const;
    // True when some record of that level contains the text.
    bool contains(int in_iLevel, const std::string& in_text) const;
    // Number of records whose message equals the text exactly.
    size_t count(const std::string& in_text) const;
    // The texts of the assertions reported, in order; whether one equals in_text.
    std::vector<std::string> assertions() const;
    bool asserted(const std::string& in_text) const;
    void clear();

private:
    log4cplus::SharedAppenderPtr m_appender;  // the recording appender on the root logger
    int m_iOldRootLevel;                      // root level to restore
    int m_iOldConsoleThreshold;               // console threshold to restore
};

}  // namespace corvane_test
